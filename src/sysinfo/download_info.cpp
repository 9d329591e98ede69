#include "sysinfo/download_info.h"

#include <glib.h>
#include <string.h>

#include "common/json_access.h"
#include "platform/log.h"
#include "service/app_control.h"
#include "service/demo_state.h"
#include "service/service.h"
#include "status/run_record.h"
#include "store/app_listing.h"
#include "sysinfo/sysinfo.h"

// The demonstration application parses this exact layout, blanks included.
#define SYSTEM_INFO_REPLY_FORMAT                                                                   \
    "{\"returnValue\":true, \"details\":{\"token\":\"%s\", \"carrier\":\"%s\", "                   \
    "\"deviceId\":\"%s\", \"locale\":\"%s\", \"serverUrl\":\"%s\", \"alias\":\"%s\", "             \
    "\"uniqueId\":\"%s\"}}"

constexpr size_t VIDEO_NAME_MAX = 98;

static BusHandle *s_kshandleStatus = nullptr;
static BusMessage *s_messageStatus = nullptr;
static bool s_bRunLocalFileDownload = false;

void setRunLocalFileDownload(bool run) {
    s_bRunLocalFileDownload = run;
}
bool isRunLocalFileDownload() {
    return s_bRunLocalFileDownload;
}

static void prvReleaseRequest() {
    if (s_messageStatus)
        KSMessageUnref(s_messageStatus);
    s_messageStatus = nullptr;
    s_kshandleStatus = nullptr;
}

static void prvStartFileDownload(const char *tag) {
    runRecordBegin(RunTrigger::SystemInfoGathered);
    callService(tag, APP_MANAGER_LIST_PACKAGES, "{}", listPkgsCBRun);
}

bool downloadSystemInfo(BusHandle *handle, BusMessage *message, void *) {
    static const char self[] = "downloadSystemInfo";
    JsonTree root = prvKSMessageGetPayloadJSON(message);
    if (s_kshandleStatus) {
        vyxLog(LOG_DEBUG,
               "%s: About to send response for 'downloadApplInfo' method\": Already in process",
               self);
        sendNegativeResponse(handle, message, "Already in process");
        return true;
    }
    if (ignoreJsonResponse(root.get(), self))
        return true;
    restartExitTimer(EXIT_TIMER_LONG_MS);
    if (!root) {
        vyxLog(LOG_DEBUG,
               "%s: About to send response for 'downloadApplInfo' method\": Invalid format", self);
        sendNegativeResponse(handle, message, "Invalid format");
        return true;
    }
    vyxLog(LOG_DEBUG, "%s: Begin processing for 'downloadApplInfo' method\"", self);
    KSMessageRef(message);
    s_kshandleStatus = handle;
    s_messageStatus = message;
    if (isAllSystemInfoPresent(self)) {
        sendSystemInfo(self);
    } else {
        requestSystemInfo();
        setValidAccountTokens(-1);
    }
    return true;
}

void sendSystemInfo(const char *caller) {
    static const char self[] = "sendSystemInfo";
    if (s_kshandleStatus) {
        g_autofree char *reply = g_strdup_printf(
            SYSTEM_INFO_REPLY_FORMAT, getAccountToken(0), getCarrierId(), getDeviceId(),
            getLocale(), getServerUrl(), getAccountToken(1), getAccountToken(3));
        vyxLog(LOG_DEBUG, "%s: About to send response for 'downloadApplInfo' method\": %s", self,
               reply);
        replyToMessage(s_kshandleStatus, s_messageStatus, reply, self);
        prvReleaseRequest();
        restartExitTimer(EXIT_TIMER_LONG_MS);
    } else if (!s_bRunLocalFileDownload) {
        vyxLog(LOG_DEBUG,
               "%s called by %s() but s_kshandleStatus is NULL and fileload flag not set", self,
               logText(caller));
        return;
    }
    if (!s_bRunLocalFileDownload)
        return;
    s_bRunLocalFileDownload = false;
    if (!isDemoRunning()) {
        vyxLog(LOG_ALERT, "%s: Demo status is OFF, file download stopped", self);
        return;
    }
    vyxLog(LOG_DEBUG, "%s called by %s(), starting file download", self, logText(caller));
    prvStartFileDownload(self);
}

void sendDownloadErrorResponse(const char *caller) {
    static const char self[] = "sendDownloadErrorResponse";
    if (s_kshandleStatus) {
        g_autofree char *text = g_strdup_printf("Request to download information ended [%s]",
                                                caller ? caller : "unknown");
        vyxLog(LOG_DEBUG, "%s: About to send error response for 'downloadApplInfo' method\": %s",
               self, text);
        sendNegativeResponse(s_kshandleStatus, s_messageStatus, text);
        prvReleaseRequest();
        restartExitTimer(EXIT_TIMER_SHORT_MS);
    } else if (s_bRunLocalFileDownload) {
        vyxLog(LOG_DEBUG, "%s called but s_kshandleStatus is NULL", self);
    }
    if (!s_bRunLocalFileDownload)
        return;
    // Unlike a successful gathering, a failed one starts the download whatever the demo mode:
    // the run itself reports the missing account to the core application.
    vyxLog(LOG_DEBUG, "%s called, starting file download", self);
    s_bRunLocalFileDownload = false;
    prvStartFileDownload(self);
}

void getVyxVideoName(char *buffer) {
    static const char self[] = "getVyxVideoName";
    if (!buffer) {
        vyxLog(LOG_ERR, "%s: Can't figure video name because %s", self, "NULL parameter");
        return;
    }
    int hardwareType = getHardwareType();
    if (hardwareType == HW_UNDEFINED) {
        vyxLog(LOG_ERR, "%s: Can't figure video name because %s", self,
               "hardware type is undefined");
        return;
    }
    const char *video = "";
    switch (hardwareType) {
    case HW_FENLO:
        video = "com.velto.vyx.v002";
        break;
    case HW_TARSK:
        video = "com.velto.vyx.v001";
        break;
    case HW_OMBREL:
        video = "com.velto.vyx.v003";
        break;
    }
    g_strlcpy(buffer, video, VIDEO_NAME_MAX + 1);
    if (strcmp(getCarrierId(), "ATT") == 0)
        buffer[0] = '\0';
    vyxLog(LOG_DEBUG, "%s: [%s]", self, buffer);
}

void getsysteminfoMemoryFree() {
    if (!s_kshandleStatus)
        return;
    vyxLog(LOG_DEBUG, "%s: Clean up messages", "getsysteminfoMemoryFree");
    sendNegativeResponse(s_kshandleStatus, s_messageStatus, "Timeout in service");
    prvReleaseRequest();
}
