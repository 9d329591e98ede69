#include "service/demo_state.h"

#include <glib.h>
#include <string.h>

#include "common/files.h"
#include "common/json_access.h"
#include "common/texts.h"
#include "monitors/display.h"
#include "platform/host.h"
#include "platform/log.h"
#include "provision/download.h"
#include "service/running_apps.h"
#include "service/service.h"
#include "status/run_record.h"
#include "store/app_listing.h"
#include "store/profile.h"

#define GET_PREFERENCES "velto://com.velto.systemservice/getPreferences"
#define SET_PREFERENCES "velto://com.velto.systemservice/setPreferences"
#define GET_ACCOUNT_TOKEN "velto://com.velto.accountservices/getAccountToken"

#define PREF_READ_PAYLOAD "{\"keys\":[\"vyxStageRunning\", \"vyxStageDetails\"]}"
#define PREF_ON_FORMAT "{\"vyxStageRunning\":true, \"vyxStageDetails\":{%s}}"
#define PREF_OFF_PAYLOAD "{\"vyxStageRunning\":false, \"vyxStageDetails\":{}}"
#define DEMO_STATE_FORMAT "{\"returnValue\":\"true\",\"state\":\"%s\"}"

static int s_initDemoStatus = -1;
static bool s_demoRunning = false;
static BusHandle *s_kshandleStatus = nullptr;
static BusMessage *s_messageStatus = nullptr;
static bool s_isBootTime = false;
static char s_vyxAppName[101] = "";
static char s_vyxPackageName[101] = "";

int isDemoStatusLoaded() {
    return s_initDemoStatus;
}
bool isDemoRunning() {
    return s_demoRunning;
}

void setVyxAppName(const char *name) {
    if (!name) {
        vyxLog(LOG_ALERT, "%s: NULL Parameter passed", "setVyxAppName");
        return;
    }
    copyReceivedText(s_vyxAppName, name, sizeof s_vyxAppName);
    if (!getPackageFromApp(s_vyxPackageName, s_vyxAppName, sizeof s_vyxPackageName))
        s_vyxPackageName[0] = '\0';
}

const char *getVyxAppName() {
    return s_vyxAppName[0] ? s_vyxAppName : DEFAULT_VYX_APP_ID;
}

const char *getVyxPackageName() {
    return s_vyxPackageName[0] ? s_vyxPackageName : DEFAULT_VYX_APP_ID;
}

static const char *demoStateText() {
    if (s_initDemoStatus != 1)
        return "unknown";
    return s_demoRunning ? "on" : "off";
}

static void releaseHeldCall() {
    KSMessageUnref(s_messageStatus);
    s_kshandleStatus = nullptr;
    s_messageStatus = nullptr;
}

// ---------------------------------------------------------------------------------------------
// The stored preference

bool determineKovaDemoPref(BusMethodHandler callback) {
    s_initDemoStatus = 0;
    vyxLog(LOG_DEBUG, "%s: About to request Demo Preferences", "determineKovaDemoPref");
    bool sent = callService("determineKovaDemoPref", GET_PREFERENCES, PREF_READ_PAYLOAD,
                            callback ? callback : determineKovaDemoPrefCB);
    if (!sent)
        s_initDemoStatus = -1;
    return sent;
}

bool setKovaDemoPref(const char *details) {
    if (!s_demoRunning && !details)
        return callService("setKovaDemoPref", SET_PREFERENCES, PREF_OFF_PAYLOAD, nullptr);

    g_autofree char *payload = g_strdup_printf(PREF_ON_FORMAT, details ? details : "");
    vyxLog(LOG_DEBUG, "setKovaDemoPref: About to set preference: %s", payload);
    bool sent = callService("setKovaDemoPref", SET_PREFERENCES, payload, nullptr);
    s_demoRunning = true;
    if (s_initDemoStatus == -1)
        s_initDemoStatus = 1;
    // The display activity belongs to a demo that is on, whether or not the write went out.
    setPowerMonitor();
    return sent;
}

void clearKovaDemoPref() {
    s_demoRunning = false;
    setKovaDemoPref(nullptr);
}

// Reads the stored preference into the state; true when the demo is to be started.
static bool evaluateDemoPref(const JsonNode *root) {
    static const char *const logName = "determineKovaDemoPrefCB";
    const JsonNode *running = prvJsonFindFirstLabel(root, "vyxStageRunning", logName);
    if (!isJsonObjectTrue(running)) {
        s_demoRunning = false;
        s_initDemoStatus = 1;
        if (!running)
            vyxLog(LOG_ALERT, "%s: Failed to find current demo status, default to OFF", logName);
        vyxLog(LOG_DEBUG, "%s: resetting kova preferences", logName);
        setKovaDemoPref(nullptr);
        return false;
    }

    s_vyxAppName[0] = '\0';
    s_vyxPackageName[0] = '\0';
    const JsonNode *details = prvJsonFindFirstLabel(root, "vyxStageDetails", logName);
    const JsonNode *application =
        details && details->child ? prvJsonFindFirstLabel(details->child, "application", logName)
                                  : nullptr;
    if (application && application->child && application->child->type == JSON_STRING) {
        setVyxAppName(application->child->text);
        vyxLog(LOG_DEBUG, "%s: vyxStageDetails/application element contains: %s", logName,
               application->child->text);
        s_initDemoStatus = 1;
        // A named application without autoRun leaves the demo off, and the stored
        // preference as the one who wrote it meant it.
        s_demoRunning = isJsonObjectTrue(prvJsonFindFirstLabel(details->child, "autoRun", logName));
        if (!s_demoRunning)
            return false;
    } else {
        if (!details)
            vyxLog(LOG_DEBUG, "%s: vyxStageDetails element %s", logName, "not found");
        else if (!details->child)
            vyxLog(LOG_DEBUG, "%s: vyxStageDetails element %s", logName, "empty");
        else
            vyxLog(LOG_DEBUG, "%s: vyxStageDetails/application element %s", logName,
                   application ? "invalid" : "not found");
        s_demoRunning = true;
        s_initDemoStatus = 1;
    }
    vyxLog(LOG_DEBUG, "%s: Demo starting up!", logName);
    return true;
}

bool determineKovaDemoPrefCB(BusHandle *, BusMessage *reply, void *) {
    static const char *const self = "determineKovaDemoPrefCB";
    vyxLog(LOG_DEBUG, "determineKovaDemoPrefCB: start");
    vyxLog(LOG_DEBUG, "determineKovaDemoPrefCB: payload %s", logText(KSMessageGetPayload(reply)));
    JsonTree root = prvKSMessageGetPayloadJSON(reply);
    if (ignoreJsonResponse(root.get(), self))
        return true;

    bool start = evaluateDemoPref(root.get());
    restartExitTimer(EXIT_TIMER_SHORT_MS);

    if (s_kshandleStatus) {
        g_autofree char *payload = g_strdup_printf(DEMO_STATE_FORMAT, demoStateText());
        vyxLog(LOG_DEBUG, "%s: About to send response for 'getDemoState' method\": %s", self,
               payload);
        replyToMessage(s_kshandleStatus, s_messageStatus, payload, self);
        releaseHeldCall();
    }

    if (s_isBootTime) {
        if (start) {
            // The account service comes up late in a boot; the demonstration needs it, so the
            // process stays alive through a long wait for it.
            restartExitTimer(EXIT_TIMER_LONG_MS);
            setRepeatTimer(true);
            vyxLog(LOG_DEBUG,
                   "%s: Boot-time startup of VYX, wait for required system components to come "
                   "online...",
                   self);
            callService("determineKovaDemoPrefCB-accountToken", GET_ACCOUNT_TOKEN, "{}",
                        accountTokenCBboot);
        } else {
            killVYX(false);
        }
        s_isBootTime = false;
        return true;
    }
    if (start) {
        vyxLog(LOG_DEBUG, "%s: non-boot startup of VYX", self);
        setPowerMonitor();
    }
    return true;
}

bool accountTokenCBboot(BusHandle *, BusMessage *reply, void *) {
    static const char *const self = "accountTokenCBboot";
    JsonTree root = prvKSMessageGetPayloadJSON(reply);
    const JsonNode *returnValue = prvJsonFindFirstLabel(root.get(), "returnValue", self);
    const JsonNode *errorText = prvJsonFindFirstLabel(root.get(), "errorText", self);
    const JsonNode *errorCode = prvJsonFindFirstLabel(root.get(), "errorCode", self);
    const JsonNode *serviceName = prvJsonFindFirstLabel(root.get(), "serviceName", self);

    bool notRunning = errorText && errorCode && serviceName && serviceName->child &&
                      serviceName->child->type == JSON_STRING && isJsonObjectFalse(returnValue) &&
                      errorText->child && errorText->child->text &&
                      strstr(errorText->child->text, " is not running");
    if (notRunning) {
        restartExitTimer(EXIT_TIMER_LONG_MS);
        hostSleepSeconds(1);
        callService("accountTokenCBboot-accountToken", GET_ACCOUNT_TOKEN, "{}", accountTokenCBboot);
        return true;
    }
    vyxLog(LOG_DEBUG, "%s: valid response received", self);
    startupVYX(false);
    setPowerMonitor();
    return true;
}

// ---------------------------------------------------------------------------------------------
// Methods

bool getDemoState(BusHandle *handle, BusMessage *message, void *) {
    static const char *const self = "getDemoState";
    restartExitTimer(EXIT_TIMER_SHORT_MS);
    vyxLog(LOG_DEBUG, "getDemoState: payload %s", logText(KSMessageGetPayload(message)));
    JsonTree root = prvKSMessageGetPayloadJSON(message);
    bool onBoot = false;
    if (!json_get_bool(root.get(), "onBoot", &onBoot))
        onBoot = false;
    if (onBoot)
        vyxLog(LOG_DEBUG, "getDemoState: Boot time request received");

    if (s_initDemoStatus != 1 && !s_kshandleStatus) {
        s_kshandleStatus = handle;
        KSMessageRef(message);
        s_messageStatus = message;
        s_isBootTime = onBoot;
        vyxLog(LOG_DEBUG, "%s: Demo status unknown, status: %d", self, s_initDemoStatus);
        if (s_initDemoStatus == -1)
            determineKovaDemoPref(nullptr);
        return true;
    }

    if (s_initDemoStatus != 1)
        vyxLog(LOG_DEBUG, "%s: Handle not-NULL, request in process: %d", self, s_initDemoStatus);
    g_autofree char *payload = g_strdup_printf(DEMO_STATE_FORMAT, demoStateText());
    vyxLog(LOG_DEBUG, "getDemoState: About to send response: %s", payload);
    replyToMessage(handle, message, payload, self);

    if (s_initDemoStatus == 1 && onBoot && !s_kshandleStatus) {
        if (s_demoRunning) {
            setDownloadReason(false);
            runRecordExpectBoot();
            startupVYX(false);
        } else {
            killVYX(false);
        }
        s_isBootTime = false;
    }
    return true;
}

void sendDemoStatusResponse(const char *caller) {
    if (!s_kshandleStatus)
        return;
    g_autofree char *payload = g_strdup_printf(DEMO_STATE_FORMAT, demoStateText());
    vyxLog(LOG_DEBUG, "%s: About to send generic response for 'getDemoState' method\": %s",
           logText(caller), payload);
    replyToMessage(s_kshandleStatus, s_messageStatus, payload, "sendDemoStatusResponse");
    releaseHeldCall();
    s_isBootTime = false;
}

static void writeDemoPref(const char *self, const char *details) {
    if (!setKovaDemoPref(details))
        vyxLog(LOG_DEBUG, "%s: Setting Kova Preference failed", self);
}

bool setDemoState(BusHandle *handle, BusMessage *message, void *) {
    static const char *const self = "setDemoState";
    restartExitTimer(EXIT_TIMER_SHORT_MS);

    enum { NO_CHANGE, TURNED_ON, TURNED_OFF } change = NO_CHANGE;
    const char *response = AFFIRMATIVE_REPLY;
    JsonTree root = prvKSMessageGetPayloadJSON(message);
    bool state = false;
    const char *application = nullptr;
    if (!root) {
        vyxLog(LOG_ERR, "%s: KSMessageGetPayloadJSON error", self);
        response =
            "{\"returnValue\":false, \"errorCode\":-1, \"errorText\":\"JSON processing error\"}";
    } else if (!json_get_bool(root.get(), "state", &state)) {
        response =
            "{\"returnValue\":false, \"errorCode\":-1, \"errorText\":\"Invalid parameters\"}";
        vyxLog(LOG_ERR, "%s: Parameter error: %s", self, logText(KSMessageGetPayload(message)));
    } else if (state &&
               (json_get_string(root.get(), "application", &application) || s_demoRunning)) {
        g_autofree char *details =
            application ? g_strdup_printf("\"application\": \"%s\"", application) : nullptr;
        if (s_demoRunning && s_initDemoStatus != 0)
            copyRoleFiles();
        writeDemoPref(self, details);
    } else if (state) {
        s_demoRunning = true;
        s_initDemoStatus = 1;
        vyxLog(LOG_DEBUG, "%s: Changing live state of demo to %s", self, "true");
        if (!isFileDownloadInProcess()) {
            setDownloadReason(true);
            runRecordBegin(RunTrigger::DemoSwitchedOn);
            initiateFileDownload();
        }
        copyRoleFiles();
        writeDemoPref(self, nullptr);
        change = TURNED_ON;
    } else if (s_demoRunning) {
        s_demoRunning = false;
        s_initDemoStatus = 1;
        vyxLog(LOG_DEBUG, "%s: Changing live state of demo to %s", self, "false");
        writeDemoPref(self, nullptr);
        change = TURNED_OFF;
    } else {
        s_initDemoStatus = 1;
        writeDemoPref(self, nullptr);
    }

    vyxLog(LOG_DEBUG, "%s: Send response: %s", self, response);
    BusError error;
    KSErrorInit(&error);
    if (!KSMessageReply(handle, message, response, &error)) {
        vyxLog(LOG_DEBUG, "%s: sending response failed", self);
        vyxLog(LOG_ERR, "%s: sending response failed", self);
    }
    KSErrorFree(&error);

    if (change == TURNED_ON) {
        vyxLog(LOG_DEBUG, "%s: Demo is running!", self);
        setDownloadReason(true);
        startupVYX(false);
    } else if (change == TURNED_OFF) {
        vyxLog(LOG_DEBUG, "%s: Exit!", self);
        killVYX(false);
        deleteProfileFileList();
        clearVyxAppPresent();
    }
    restartExitTimer(EXIT_TIMER_SHORT_MS);
    return true;
}

bool toggleDemo(BusHandle *handle, BusMessage *message, void *) {
    static const char *const self = "toggleDemo";
    restartExitTimer(EXIT_TIMER_SHORT_MS);
    s_demoRunning = !s_demoRunning;
    s_initDemoStatus = 1;
    writeDemoPref(self, nullptr);
    sendAffirmativeResponse(handle, message);

    if (s_demoRunning) {
        setDownloadReason(true);
        startupVYX(true);
        if (!isFileDownloadInProcess()) {
            runRecordBegin(RunTrigger::DemoSwitchedOn);
            initiateFileDownload();
        }
        copyRoleFiles();
        vyxLog(LOG_DEBUG, "%s: Demo is running!", self);
    } else {
        killVYX(true);
        deleteProfileFileList();
        clearVyxAppPresent();
        vyxLog(LOG_DEBUG, "%s: Demo is not running!", self);
    }
    restartExitTimer(EXIT_TIMER_SHORT_MS);
    return true;
}
