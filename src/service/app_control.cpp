#include "service/app_control.h"

#include <glib.h>
#include <stdlib.h>
#include <string.h>

#include "common/json_access.h"
#include "common/texts.h"
#include "platform/host.h"
#include "platform/log.h"
#include "provision/download.h"
#include "service/demo_state.h"
#include "service/service.h"
#include "status/run_record.h"
#include "store/app_listing.h"
#include "sysinfo/download_info.h"
#include "sysinfo/sysinfo.h"

#define DEMO_ACTION_FORMAT "{\"id\":\"%s\",\"params\":{\"action\":\"%s\" %s%s}}"
#define CORE_ACTION_FORMAT                                                                         \
    "{\"id\":\"%s\",\"params\":{\"action\":\"%s\", \"appName\":\"%s\", \"appLaunch\":%s, "         \
    "\"version\":\"%s\"}}"
#define CORE_POPUP_FORMAT                                                                          \
    "{\"id\":\"%s\",\"params\":{\"action\":\"popupalert\", \"message\":\"%s\", \"name\":\"%s\", "  \
    "\"percent\":\"%s\"}}"
#define CORE_START_FORMAT "{\"id\":\"%s\",\"params\":{\"action\":\"startVyx\"}}"

// Every field of a pop-up holds at most this many characters.
constexpr size_t CORE_TEXT_LIMIT = 99;

static PendingCoreMessage s_vyxCoreMessage = {};
static bool s_bWaitForVyxCore = false;
static int64_t s_timeLastVyxCoreMessage = 0;

static void copyCoreText(char (&field)[101], const char *text) {
    copyReceivedText(field, text, CORE_TEXT_LIMIT + 1);
}

static void clearPendingCoreMessage() {
    s_vyxCoreMessage = {};
}

static bool isReturnValueTrue(const JsonNode *root, const char *caller) {
    return isJsonObjectTrue(prvJsonFindFirstLabel(root, "returnValue", caller));
}

// ---------------------------------------------------------------------------------------------
// The running list

int getProcessId(const JsonNode *root, const char *appId) {
    static const char *const self = "getProcessId";
    if (!root || !appId || !*appId)
        return -1;
    const JsonNode *running = prvJsonFindFirstLabel(root, "running", self);
    int found = -1;
    if (running && running->child && running->child->child) {
        for (const JsonNode *entry = running->child->child; entry; entry = entry->next) {
            const JsonNode *id = prvJsonFindFirstLabel(entry, "id", self);
            const JsonNode *pid = prvJsonFindFirstLabel(entry, "processid", self);
            if (!id || !id->child || !id->child->text || strcmp(id->child->text, appId) != 0)
                continue;
            if (pid && pid->child && pid->child->text)
                found = static_cast<int>(strtol(pid->child->text, nullptr, 10));
        }
    }
    if (found >= 0) {
        vyxLog(LOG_DEBUG, "%s: Process [%s] is found, pId #%d", self, appId, found);
        return found;
    }
    vyxLog(LOG_DEBUG, "%s: Process [%s] is not found", self, appId);
    return -1;
}

// ---------------------------------------------------------------------------------------------
// The demonstration application

void launchVYXAction(const char *action, const char *extra, const char *appId) {
    static const char *const self = "launchVYXAction";
    restartExitTimer(EXIT_TIMER_SHORT_MS);
    bool hasExtra = extra && *extra;
    g_autofree char *payload = g_strdup_printf(
        DEMO_ACTION_FORMAT, appId && *appId ? appId : getVyxAppName(), action ? action : "",
        hasExtra && extra[0] != ',' ? "," : "", hasExtra ? extra : "");
    vyxLog(LOG_DEBUG, "%s: App init: %s", self, payload);
    callService(self, APP_MANAGER_LAUNCH, payload, prvLaunchVYXCB);
}

bool prvLaunchVYXCB(BusHandle *, BusMessage *reply, void *) {
    static const char *const self = "prvLaunchVYXCB";
    JsonTree root = prvKSMessageGetPayloadJSON(reply);
    if (ignoreJsonResponse(root.get(), self))
        return true;
    vyxLog(LOG_DEBUG, "%s: payload %s", self, logText(KSMessageGetPayload(reply)));

    if (isReturnValueTrue(root.get(), self)) {
        setVyxAppPresent(1);
        g_autofree char *payload = g_strdup_printf(CORE_START_FORMAT, VYX_CORE_APP_ID);
        vyxLog(LOG_DEBUG, "%s: vyxCore changed: %s", self, payload);
        callService(self, APP_MANAGER_LAUNCH, payload, genericCB);
        return true;
    }

    // The launch failed because the demonstration application is not installed: that is what
    // starts provisioning.
    DownloadStateMode mode = getDownloadStateMode();
    if (mode != DSM_IDLE) {
        vyxLog(LOG_DEBUG, "%s: VYX launch failed, but download already in process, mode: %d", self,
               mode);
        return true;
    }
    runRecordBegin(RunTrigger::FailedLaunch);
    if (isAllSystemInfoPresent(self)) {
        BusError error;
        KSErrorInit(&error);
        KSCall(getKovaServiceHandle(), APP_MANAGER_LIST_PACKAGES, "{}", listPkgsCBRun, nullptr,
               nullptr, &error);
        KSErrorFree(&error);
    } else if (!isSystemInfoRequestInProcess(self)) {
        setRunLocalFileDownload(true);
        requestSystemInfo();
    } else {
        setRunLocalFileDownload(true);
    }
    setVyxAppPresent(0);
    return true;
}

// ---------------------------------------------------------------------------------------------
// The core application

void launchVYXCoreAction(const char *action, const char *appName, bool appLaunch,
                         const char *version) {
    static const char *const self = "launchVYXCoreAction";
    restartExitTimer(EXIT_TIMER_SHORT_MS);
    s_timeLastVyxCoreMessage = hostNowSeconds();
    g_autofree char *payload =
        g_strdup_printf(CORE_ACTION_FORMAT, VYX_CORE_APP_ID, action ? action : "",
                        appName && *appName ? appName : DEFAULT_VYX_APP_ID,
                        appLaunch ? "true" : "false", version ? version : "");
    vyxLog(LOG_DEBUG, "%s: App init: %s", self, payload);
    callService(self, APP_MANAGER_LAUNCH, payload, genericCB);
}

void prvLaunchVYXCoreMessage(const char *message, const char *name, const char *percent) {
    static const char *const self = "prvLaunchVYXCoreMessage";
    restartExitTimer(EXIT_TIMER_SHORT_MS);
    s_bWaitForVyxCore = true;
    s_timeLastVyxCoreMessage = hostNowSeconds();
    PendingCoreMessage texts;
    copyCoreText(texts.message, message);
    copyCoreText(texts.name, name);
    copyCoreText(texts.percent, percent);
    g_autofree char *payload = g_strdup_printf(CORE_POPUP_FORMAT, VYX_CORE_APP_ID, texts.message,
                                               texts.name, texts.percent);
    vyxLog(LOG_DEBUG, "%s: VYXCore message: %s", self, payload);
    // A pop-up that never left must not hold back the ones after it.
    if (!callService(self, APP_MANAGER_LAUNCH, payload, vyxCoreMessageCB))
        s_bWaitForVyxCore = false;
}

// Messages that a progress update must not hide from the user.
static bool isStickyCoreMessage(const char *message) {
    return strcmp(message, "disableVYX") == 0 || strcmp(message, "startVYX") == 0 ||
           strcmp(message, "noProfile") == 0;
}

static bool mayReplaceStickyCoreMessage(const char *message) {
    return strcmp(message, "disableVYX") == 0 || strcmp(message, "noProfile") == 0;
}

void launchVYXCoreMessage(const char *message, const char *name, const char *percent) {
    static const char *const self = "launchVYXCoreMessage";
    if (!message || !*message) {
        vyxLog(LOG_ERR, "%s: Parameter error", self);
        return;
    }
    runRecordPopup(message);
    if (!s_bWaitForVyxCore && hostNowSeconds() - s_timeLastVyxCoreMessage > 1) {
        clearPendingCoreMessage();
        prvLaunchVYXCoreMessage(message, name, percent);
        return;
    }
    if (isStickyCoreMessage(s_vyxCoreMessage.message) && !mayReplaceStickyCoreMessage(message)) {
        vyxLog(LOG_DEBUG, "%s: Message '%s' ignored", self, message);
        return;
    }
    copyCoreText(s_vyxCoreMessage.message, message);
    copyCoreText(s_vyxCoreMessage.name, name);
    copyCoreText(s_vyxCoreMessage.percent, percent);
    if (s_bWaitForVyxCore) {
        vyxLog(LOG_DEBUG, "%s: Message '%s' queued", self, message);
        return;
    }
    s_bWaitForVyxCore = true;
    vyxLog(LOG_DEBUG, "%s: Message '%s' delayed", self, message);
    callService(self, APP_MANAGER_RUNNING, "{}", vyxCoreMessageDelayCB);
}

bool vyxCoreMessageCB(BusHandle *, BusMessage *reply, void *) {
    static const char *const self = "vyxCoreMessageCB";
    JsonTree root = prvKSMessageGetPayloadJSON(reply);
    if (ignoreJsonResponse(root.get(), self))
        return true;
    vyxLog(LOG_DEBUG, "%s: %s", self, logText(KSMessageGetPayload(reply)));
    if (s_vyxCoreMessage.message[0] && s_bWaitForVyxCore) {
        vyxLog(LOG_DEBUG, "%s: Message '%s' delayed", self, s_vyxCoreMessage.message);
        callService(self, APP_MANAGER_RUNNING, "{}", vyxCoreMessageDelayCB);
    } else {
        s_bWaitForVyxCore = false;
    }
    return true;
}

bool vyxCoreMessageDelayCB(BusHandle *, BusMessage *reply, void *) {
    static const char *const self = "vyxCoreMessageDelayCB";
    JsonTree root = prvKSMessageGetPayloadJSON(reply);
    if (ignoreJsonResponse(root.get(), self))
        return true;
    const char *payload = logText(KSMessageGetPayload(reply));
    vyxLog(LOG_DEBUG, "%s: message with payload:%s", self, payload);

    if (!s_vyxCoreMessage.message[0] || !s_bWaitForVyxCore) {
        vyxLog(LOG_DEBUG, "%s: ignored... no message waiting to be sent: %s", self, payload);
        s_bWaitForVyxCore = false;
        return true;
    }
    // The core application drops a pop-up that arrives on the heels of the previous one, or
    // before it has come up; a recent send buys one pause and, if the core application is not
    // yet running, one more look at the running list.
    if (hostNowSeconds() - s_timeLastVyxCoreMessage <= 1) {
        hostSleepSeconds(1);
        if (isReturnValueTrue(root.get(), self) && getProcessId(root.get(), VYX_CORE_APP_ID) < 1) {
            vyxLog(LOG_DEBUG, "%s: Message '%s' delayed again", self, s_vyxCoreMessage.message);
            callService(self, APP_MANAGER_RUNNING, "{}", vyxCoreMessageDelayCB);
            return true;
        }
    }
    vyxLog(LOG_DEBUG, "%s: Message '%s' dequeued", self, s_vyxCoreMessage.message);
    PendingCoreMessage pending = s_vyxCoreMessage;
    clearPendingCoreMessage();
    prvLaunchVYXCoreMessage(pending.message, pending.name, pending.percent);
    return true;
}
