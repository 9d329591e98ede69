#include "provision/download.h"

#include <glib.h>
#include <string.h>

#include "common/files.h"
#include "common/json_access.h"
#include "monitors/connmgr.h"
#include "platform/curl_dl.h"
#include "platform/host.h"
#include "platform/log.h"
#include "provision/config.h"
#include "provision/install.h"
#include "provision/install_status.h"
#include "provision/run.h"
#include "provision/run_state.h"
#include "service/app_control.h"
#include "service/demo_state.h"
#include "service/service.h"
#include "status/run_record.h"
#include "store/app_listing.h"
#include "store/profile.h"
#include "sysinfo/download_info.h"
#include "sysinfo/sysinfo.h"

#define DEMO_EXIT_FORMAT "{\"id\":\"%s\",\"params\":{\"action\":\"exit\"}}"
#define DEMO_START_FORMAT "{\"id\":\"%s\",\"params\":{\"action\":\"%s\"}}"
#define DEMO_DETAILS_FORMAT "\"application\":\"%s\", \"autoRun\":true, \"videos\":\"%s\""
#define DEMO_DETAILS_NO_VIDEO_FORMAT "\"application\":\"%s\", \"autoRun\":true"

constexpr guint32 STATUS_TIMER_MS = 2000;
constexpr int64_t CONNECTION_WAIT_SECS = 60;

static bool s_bStartupVyxMode = false;
static int s_tVyxAppPresent = -1;

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

// ---------------------------------------------------------------------------------------------
// Start

void initiateFileDownload() {
    vyxLog(LOG_DEBUG, "%s: Started", "initiateFileDownload");
    restartExitTimer(EXIT_TIMER_LONG_MS);
    getConnectionStatus(true);
    resetDownloadFileProgress();
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

static void failedOnRamp(const char *caller) {
    vyxLog(LOG_DEBUG, "%s: Failed in getting profile or profile info", caller);
    processEndPackageInfo(FAIL_CONNECT, caller);
}

void startFileDownload() {
    static const char *const self = "startFileDownload";
    restartExitTimer(EXIT_TIMER_LONG_MS);
    // Checked before the handle: a second start is logged as such even when it is abandoned.
    expectDownloadStateMode({DSM_IDLE}, self);
    if (s_CurlHandle) {
        vyxLog(LOG_ALERT, "%s: Curl handle already initialized!  Abandoning", self);
        return;
    }
    vyxLog(LOG_DEBUG, "%s: Started", self);
    setDownloadStateMode(DSM_ONRAMP, self);
    launchVYXCoreMessage(POPUP_CHECK, nullptr, nullptr);
    s_bWaitForInternet = false;
    s_LastMsgSecs = hostNowSeconds();

    if (!validAccountTokens()) {
        vyxLog(LOG_DEBUG, "%s: Account tokens not valid", self);
        processEndPackageInfo(FAIL_ACCOUNT, self);
        return;
    }
    if (s_ppInstallFiles) {
        vyxLog(LOG_DEBUG, "%s: Need to free install files list", self);
        freeStrArray(&s_ppInstallFiles);
    }
    s_InstallFileCompleted = 0;
    s_InstallFileCount = 0;

    if (!loadDownloadFileList() || s_FileCount == 0) {
        vyxLog(LOG_DEBUG, "%s: no files from 'conf' file or default list", self);
        if (!s_bUseOnRamp) {
            processEndPackageInfo(FAIL_NONE, self);
            return;
        }
        s_CurlHandle = curlEasyInit();
        if (!checkOnRampInfo())
            failedOnRamp(self);
        return;
    }
    createDeleteList();
    s_CurlHandle = curlEasyInit();
    if (s_bUseOnRamp) {
        if (!checkOnRampInfo())
            failedOnRamp(self);
        return;
    }
    vyxLog(LOG_DEBUG, "%s: Skip on-ramp, go directly to local processing", self);
    setDownloadStateMode(DSM_LOCAL, self);
    beginInstallDelete();
}

// Waiting is what the status timer does while no connection is known; unknown counts as up.
void startConnectionWait() {
    s_LastMsgSecs = hostNowSeconds();
    restartExitTimer(EXIT_TIMER_LONG_MS);
    s_bWaitForInternet = true;
    runRecordPhase(RunPhase::WaitingForConnection);
    startStatusTimer(getStatusTimer(), statusTimerCB, STATUS_TIMER_MS);
}

bool checkOnRampInfo() {
    static const char *const self = "checkOnRampInfo";
    vyxLog(LOG_DEBUG, "%s: Started", self);
    setDownloadStateMode(DSM_ONRAMP, self);
    if (getConnectionStatus(false) == 0) {
        vyxLog(LOG_DEBUG, "%s: no connection", self);
        startConnectionWait();
        return true;
    }
    if (!s_CurlHandle) {
        vyxLog(LOG_DEBUG, "%s: No curl handle", self);
        processEndPackageInfo(FAIL_CONNECT, self);
        return true;
    }
    s_bWaitForInternet = false;
    launchVYXCoreMessage(POPUP_CHECK, nullptr, nullptr);
    vyxLog(LOG_DEBUG, "%s: Curl handle and connection...load profile", self);
    return loadProfilePackageList(s_CurlHandle);
}

// ---------------------------------------------------------------------------------------------
// The status timer

void restartStatusTimer() {
    startStatusTimer(getStatusTimer(), statusTimerCB, STATUS_TIMER_MS);
}

static void connectionWaitFired() {
    static const char *const logName = "statusTimerCB";
    if (getConnectionStatus(false) != 0) {
        vyxLog(LOG_DEBUG, "%s: Status timer fired and data connection found", logName);
        stopStatusTimer(getStatusTimer());
        s_bWaitForInternet = false;
        if (!s_CurlHandle) {
            vyxLog(LOG_DEBUG, "%s: No curl handle, abandon", logName);
            processEndPackageInfo(FAIL_CONNECT, logName);
        } else if (getDownloadStateMode() == DSM_ONRAMP) {
            launchVYXCoreMessage(POPUP_CHECK, nullptr, nullptr);
            loadProfilePackageList(s_CurlHandle);
        } else if (getDownloadStateMode() == DSM_LOCAL) {
            launchVYXCoreMessage(POPUP_CHECK, nullptr, nullptr);
            processNextPackageInfo();
        } else {
            vyxLog(LOG_DEBUG, "%s: Curl handle but profile problem, perhaps?", logName);
            releaseCurlHandle();
            processEndPackageInfo(FAIL_CONNECT, logName);
        }
        return;
    }
    int64_t waited = hostNowSeconds() - s_LastMsgSecs;
    if (waited <= CONNECTION_WAIT_SECS) {
        int64_t percent = waited * 100 / CONNECTION_WAIT_SECS;
        g_autofree char *text = g_strdup_printf("%d", percent < 1    ? 0
                                                      : percent > 99 ? 100
                                                                     : static_cast<int>(percent));
        launchVYXCoreMessage(POPUP_WAIT_CONNECT, nullptr, text);
        restartStatusTimer();
        return;
    }
    vyxLog(LOG_ALERT, "%s: Give up waiting for internet access", logName);
    releaseCurlHandle(logName);
    s_bWaitForInternet = false;
    stopStatusTimer(getStatusTimer());
    processEndPackageInfo(FAIL_CONNECT, logName);
}

int statusTimerCB(void *) {
    if (s_bWaitForInternet)
        connectionWaitFired();
    else
        installStatusTimerFired();
    return TRUE;
}

// ---------------------------------------------------------------------------------------------
// The last step: start the demonstration application

static bool inPackageIds(StrArray ids, unsigned count, const char *packageId) {
    return prvFindInStringArray(ids, static_cast<int>(count), packageId) >= 0;
}

// Splits a list into package ids, cutting the first `count` items at their TAB.
static StrArray splitPackageIds(const char *list, unsigned count) {
    StrArray items = g_strsplit(list ? list : "", getStringSeparator(), -1);
    for (unsigned i = 0; i < count && items[i]; i++)
        if (char *tab = strchr(items[i], '\t'))
            *tab = '\0';
    return items;
}

// The demonstration can't run: a start run tells the user why, any other run wakes the
// application that is there.
static void cannotRunDemo(const char *appId, bool sleepFirst) {
    if (!s_bStartupVyxMode) {
        launchVYXAction(DEMO_ACTION_POWER, nullptr, nullptr);
        return;
    }
    bool valid = validAccountTokens();
    setVyxAppPresent(0);
    clearKovaDemoPref();
    if (sleepFirst && !valid)
        hostSleepSeconds(2);
    launchVYXCoreMessage(valid ? POPUP_DISABLE_VYX : POPUP_NO_PROFILE, appId, nullptr);
}

void startupApplication(const char *changedList, unsigned changedCount, const char *currentList,
                        unsigned currentCount) {
    static const char *const self = "startupApplication";
    vyxLog(LOG_DEBUG, "%s: Started, Apps %s", self, currentList ? currentList : "");
    restartExitTimer(EXIT_TIMER_LONG_MS);

    if (currentCount == 0) {
        vyxLog(LOG_ALERT, "%s: No files present", self);
        cannotRunDemo(nullptr, false);
        if (!validAccountTokens())
            hostSleepSeconds(2);
        setDownloadStateMode(DSM_IDLE, self);
        clearPkgListJSON();
        return;
    }
    if (getDownloadStateMode() == DSM_RECONCILE)
        vyxLog(LOG_DEBUG, "%s: Started", self);
    setDownloadStateMode(DSM_STARTUP, self, {DSM_RECONCILE});

    g_auto(GStrv) changed = splitPackageIds(changedList, changedCount);
    vyxLog(LOG_DEBUG, "%s: Changed List: %s", self, changedList ? changedList : "");
    g_auto(GStrv) current = splitPackageIds(currentList, currentCount);
    vyxLog(LOG_DEBUG, "%s: Loaded List: %s", self, currentList ? currentList : "");

    char appId[101] = {};
    char packageId[101] = {};
    bool reboot = false;
    getCurrentVyxApp(appId, &reboot);
    getPackageFromApp(packageId, appId, sizeof packageId);
    if (!s_bStartupVyxMode)
        reboot = false;

    if (inPackageIds(changed, changedCount, VYX_CORE_APP_ID)) {
        vyxLog(LOG_DEBUG, "%s: vyxCore changed", self);
        launchVYXCoreAction(CORE_ACTION_INITIALIZE, appId, false, nullptr);
        s_bSetRebootAtEnd = true;
    }
    if (inPackageIds(changed, changedCount, packageId) ||
        inPackageIds(changed, changedCount, VYX_SERVICE_DATA_PACKAGE)) {
        vyxLog(LOG_DEBUG, "%s: Trigger a reboot because '%s' or '%s' updated/installed", self,
               VYX_SERVICE_DATA_PACKAGE, packageId);
        s_bSetRebootAtEnd = true;
    }

    if (!inPackageIds(current, currentCount, packageId)) {
        vyxLog(LOG_ALERT, "%s: VYX package %s not found and not installed", self, packageId);
        cannotRunDemo(appId, true);
        setDownloadStateMode(DSM_IDLE, self);
        clearPkgListJSON();
        return;
    }

    char video[101] = {};
    getVyxVideoName(video);
    g_autofree char *details = video[0] ? g_strdup_printf(DEMO_DETAILS_FORMAT, appId, video)
                                        : g_strdup_printf(DEMO_DETAILS_NO_VIDEO_FORMAT, appId);
    setKovaDemoPref(details);
    if (!reboot)
        reboot = s_bSetRebootAtEnd;
    setVyxAppPresent(1);

    if (g_strcmp0(getVyxAppName(), appId) != 0) {
        g_autofree char *exitPayload = g_strdup_printf(DEMO_EXIT_FORMAT, appId);
        vyxLog(LOG_DEBUG, "%s: End prior VYX, if running: %s", self, exitPayload);
        callService(self, APP_MANAGER_LAUNCH, exitPayload, genericCB);
    }
    setVyxAppName(appId);
    launchVYXCoreAction(CORE_ACTION_START_VYX, appId, false, nullptr);
    g_autofree char *startPayload =
        g_strdup_printf(DEMO_START_FORMAT, appId, reboot ? "reboot" : "initialize");
    vyxLog(LOG_DEBUG, "%s: Start VYX: %s", self, startPayload);
    callService(self, APP_MANAGER_LAUNCH, startPayload, prvRunVYXCB);
    clearPkgListJSON();
}

bool prvRunVYXCB(BusHandle *, BusMessage *reply, void *) {
    static const char *const self = "prvRunVYXCB";
    JsonTree root = prvKSMessageGetPayloadJSON(reply);
    if (ignoreJsonResponse(root.get(), self))
        return true;
    vyxLog(LOG_DEBUG, "%s: payload %s", self, logText(KSMessageGetPayload(reply)));
    bool started = root && isJsonObjectTrue(prvJsonFindFirstLabel(root.get(), "returnValue", self));
    runRecordFinalLaunch(started);
    if (started) {
        setVyxAppPresent(1);
        stopExitTimer(getExitTimer());
        startExitTimer(getExitTimer(), exitTimerCB, EXIT_TIMER_SHORT_MS);
    }
    setDownloadStateMode(DSM_IDLE, self, {DSM_STARTUP});
    if (!started) {
        vyxLog(LOG_ALERT, "%s: Can't find an VYX program to run, disabling VYX mode", self);
        clearKovaDemoPref();
        setVyxAppPresent(0);
        launchVYXCoreMessage(POPUP_DISABLE_VYX, nullptr, nullptr);
    }
    return true;
}

void appdownloadMemoryFree() {
    freeStrArray(&s_ppFiles);
    freeStrArray(&s_ppOptionalFiles);
    freeStrArray(&s_ppPurgeFiles);
    freeStrArray(&s_ppInstallFiles);
    freeStrArray(&s_ppProfileFiles);
    // The counts and positions describe the lists just freed; left as they were, a reply that
    // still arrives would index lists that are gone.
    s_FileCount = s_OptionalFileCount = s_PurgeFileCount = 0;
    s_InstallFileCount = s_InstallFileCompleted = 0;
    s_FileInfoOffset = s_PurgeFileOffset = -1;
    s_bWaitingInstallStatus = false;
    releaseCurlHandle();
    resetDownloadFileProgress();
}
