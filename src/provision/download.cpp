#include "provision/download.h"

#include "monitors/connmgr.h"
#include "platform/log.h"
#include "service/app_control.h"
#include "service/service.h"
#include "store/app_listing.h"
#include "sysinfo/download_info.h"
#include "sysinfo/sysinfo.h"

static int s_StateMode = DSM_IDLE;
static bool s_bStartupVyxMode = false;
static int s_tVyxAppPresent = -1;

int getDownloadStateMode() {
    return s_StateMode;
}

void setDownloadStateMode(int mode, const char *caller) {
    vyxLog(LOG_DEBUG, "%s: Download state mode changed from %d to %d", logText(caller), s_StateMode,
           mode);
    s_StateMode = mode;
}

void setDownloadReason(bool startupVyxMode) {
    s_bStartupVyxMode = startupVyxMode;
}

void setVyxAppPresent(int present) {
    s_tVyxAppPresent = present;
}
void clearVyxAppPresent() {
    s_tVyxAppPresent = -1;
}

int isVyxAppPresent() {
    if (s_tVyxAppPresent == -1 || s_tVyxAppPresent == 0)
        vyxLog(LOG_ALERT, "%s: %s", "isVyxAppPresent",
               s_tVyxAppPresent == -1 ? "Presence unknown" : "Believed absent");
    return s_tVyxAppPresent;
}

void initiateFileDownload() {
    vyxLog(LOG_DEBUG, "%s: Started", "initiateFileDownload");
    restartExitTimer(EXIT_TIMER_LONG_MS);
    getConnectionStatus(true);
    if (!isAllSystemInfoPresent("initiateFileDownload") &&
        !isSystemInfoRequestInProcess("initiateFileDownload")) {
        setRunLocalFileDownload(true);
        requestSystemInfo();
        return;
    }
    if (isSystemInfoRequestInProcess("initiateFileDownload")) {
        setRunLocalFileDownload(true);
        return;
    }
    callService("initiateFileDownload", APP_MANAGER_LIST_PACKAGES, "{}", listPkgsCBRun);
}

void appdownloadMemoryFree() {}
