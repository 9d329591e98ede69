#include "service/service.h"

#include <glib-unix.h>
#include <signal.h>

#include "common/json_access.h"
#include "monitors/connmgr.h"
#include "monitors/display.h"
#include "platform/host.h"
#include "platform/log.h"
#include "provision/download.h"
#include "service/config_methods.h"
#include "service/demo_state.h"
#include "status/run_history.h"
#include "status/run_record.h"
#include "status/run_status.h"
#include "store/app_listing.h"
#include "sysinfo/download_info.h"

static GMainLoop *s_mainLoop = nullptr;
static BusHandle *s_pServiceHandle = nullptr;
static TimerRecord s_exitTimer = {};
static TimerRecord s_statusTimer = {};
static bool s_isLongExitTimer = false;
static bool s_bRepeatTimer = false;

static const BusMethod methods[] = {
    {"toggleDemo", toggleDemo, 0},
    {"setDemoState", setDemoState, 0},
    {"demoState", getDemoState, 0},
    {"setUserInput", notSupported, 0},
    {"timedout", notSupported, 0},
    {"tapped", notSupported, 0},
    {"closetutorial", notSupported, 0},
    {"downloadAppInfo", downloadSystemInfo, 0},
    {"sendDownloadStatus", notSupported, 0},
    {"assignConfigFile", assignConfigFile, 0},
    {"verifyPackages", verifyPackages, 0},
    {"displayChange", displayChange, 0},
    {"runStatus", runStatus, 0},
    {nullptr, nullptr, 0},
};

GMainLoop *getMainLoop() {
    return s_mainLoop;
}

BusHandle *getKovaServiceHandle() {
    if (!s_pServiceHandle)
        vyxLog(LOG_ALERT, "%s: NULL pointer", "getKovaServiceHandle");
    return s_pServiceHandle;
}

TimerRecord *getExitTimer() {
    return &s_exitTimer;
}
TimerRecord *getStatusTimer() {
    return &s_statusTimer;
}
void setRepeatTimer(bool repeat) {
    s_bRepeatTimer = repeat;
}

bool restartExitTimer(guint32 intervalMs) {
    return startExitTimer(getExitTimer(), exitTimerCB, intervalMs);
}

bool callService(const char *tag, const char *uri, const char *payload, BusMethodHandler callback,
                 void *context) {
    BusError error;
    KSErrorInit(&error);
    bool sent = KSCall(getKovaServiceHandle(), uri, payload, callback, context, nullptr, &error);
    if (!sent)
        vyxLog(LOG_ERR, "%s: KSCall error %d: %s", tag, error.code, logText(error.message));
    KSErrorFree(&error);
    return sent;
}

// ---------------------------------------------------------------------------------------------
// Timers

static void destroySource(TimerRecord *timer) {
    if (timer->source) {
        g_source_destroy(timer->source);
        g_source_unref(timer->source);
    }
    timer->source = nullptr;
    timer->sourceId = 0;
}

static bool attachSource(TimerRecord *timer, GSourceFunc callback, guint32 intervalMs) {
    timer->interval = intervalMs;
    GSource *source = g_timeout_source_new(intervalMs);
    if (!source)
        return false;
    g_source_set_callback(source, callback, timer, nullptr);
    timer->sourceId = g_source_attach(source, nullptr);
    timer->source = source;
    return true;
}

bool stopExitTimer(TimerRecord *timer) {
    s_isLongExitTimer = false;
    if (!timer)
        return false;
    destroySource(timer);
    return true;
}

bool startExitTimer(TimerRecord *timer, GSourceFunc callback, guint32 intervalMs) {
    if (!timer || !callback || intervalMs == 0) {
        vyxLog(LOG_DEBUG, "%s: Invalid parameters, return FALSE", "startExitTimer");
        return false;
    }
    bool isLong = intervalMs >= EXIT_TIMER_LONG_MS;
    if (isLong) {
        stopExitTimer(timer);
        s_isLongExitTimer = true;
    } else if (s_isLongExitTimer) {
        vyxLog(LOG_DEBUG, "%s: Short timeout for %d msec ignored as long timeout running",
               "startExitTimer", intervalMs);
        return true;
    } else {
        stopExitTimer(timer);
    }
    vyxLog(LOG_DEBUG, "%s: Starting a %s exit timer for %d msec", "startExitTimer",
           isLong ? "long" : "short", intervalMs);
    if (!attachSource(timer, callback, intervalMs)) {
        stopExitTimer(timer);
        vyxLog(LOG_DEBUG, "%s: Failed to assign timer, return FALSE", "startExitTimer");
        return false;
    }
    return true;
}

bool stopStatusTimer(TimerRecord *timer) {
    if (!timer)
        return false;
    destroySource(timer);
    return true;
}

bool startStatusTimer(TimerRecord *timer, GSourceFunc callback, guint32 intervalMs) {
    if (!timer || !callback || intervalMs == 0) {
        vyxLog(LOG_ALERT, "%s: Invalid parameters, return FALSE", "startStatusTimer");
        return false;
    }
    stopStatusTimer(timer);
    if (!attachSource(timer, callback, intervalMs)) {
        stopStatusTimer(timer);
        vyxLog(LOG_DEBUG, "%s: Failed to assign timer, return FALSE", "startStatusTimer");
        return false;
    }
    return true;
}

void stopAllTimers() {
    vyxLog(LOG_DEBUG, "stopAllTimers");
    stopExitTimer(&s_exitTimer);
    stopStatusTimer(&s_statusTimer);
    shutdownConnMgr();
}

// ---------------------------------------------------------------------------------------------
// Shutdown

bool deinitializeKovaService() {
    BusError error;
    KSErrorInit(&error);
    bool ok = KSUnregister(s_pServiceHandle, &error);
    if (!ok)
        vyxLog(LOG_ERR, "%s: KSUnregister error %d: %s", "deinitializeKovaService", error.code,
               logText(error.message));
    KSErrorFree(&error);
    s_pServiceHandle = nullptr;
    return ok;
}

static void releaseModules() {
    appdownloadMemoryFree();
    getapplicationinfoMemoryFree();
    getsysteminfoMemoryFree();
}

// Replies to held calls go out on the named connection; they must reach the bus before the
// process ends, so the connection is flushed and closed as the last act.
static void closeNamedConnection() {
    BusHandle *named = s_exitTimer.handle;
    s_exitTimer.handle = nullptr;
    if (!named)
        return;
    BusError error;
    KSErrorInit(&error);
    if (!KSUnregister(named, &error))
        vyxLog(LOG_ERR, "%s: KSUnregister error %d: %s", "unregisterKovaService", error.code,
               logText(error.message));
    KSErrorFree(&error);
}

gboolean exitTimerCB(gpointer) {
    if (s_bRepeatTimer) {
        s_bRepeatTimer = false;
        vyxLog(LOG_DEBUG, "exitTimerCB() fired: but restart timer since still waiting...");
        restartExitTimer(EXIT_TIMER_LONG_MS);
        return G_SOURCE_REMOVE;
    }
    vyxLog(LOG_DEBUG, "exitTimerCB() fired: Exit application!");
    sendDownloadErrorResponse("exitTimerCB");
    sendDemoStatusResponse("exitTimerCB");
    runRecordProcessEnd("idle");
    stopAllTimers();
    deinitializeKovaService();
    releaseModules();
    closeNamedConnection();
    hostExit(0);
    return G_SOURCE_REMOVE;
}

void sigproc(int signal) {
    vyxLog(LOG_DEBUG, "sigproc: Ending vyxService on signal: %d", signal);
    runRecordProcessEnd(signal == SIGINT ? "SIGINT" : "signal");
    stopAllTimers();
    deinitializeKovaService();
    releaseModules();
    vyxLog(LOG_DEBUG, "%s: Ending vyxService in sigproc #%d", "sigproc", signal);
    closeNamedConnection();
    hostExit(0);
}

// The shutdown steps make bus calls, which no signal handler may do: SIGINT is delivered
// through the main loop instead.
static gboolean onSigint(gpointer) {
    sigproc(SIGINT);
    return G_SOURCE_REMOVE;
}

bool notSupported(BusHandle *handle, BusMessage *message, void *) {
    restartExitTimer(EXIT_TIMER_SHORT_MS);
    vyxLog(LOG_DEBUG, "%s: About to send response", "notSupported");
    sendNegativeResponse(handle, message, "Method no longer supported by vyxService.");
    return true;
}

// ---------------------------------------------------------------------------------------------
// Start-up

static void registerUnnamedConnection() {
    BusError error;
    KSErrorInit(&error);
    if (!KSRegister(nullptr, &s_pServiceHandle, &error)) {
        vyxLog(LOG_ERR, "%s: KSRegister error %d: %s", "InitializeKovaService", error.code,
               logText(error.message));
    } else if (!KSGmainAttach(s_pServiceHandle, s_mainLoop, &error)) {
        vyxLog(LOG_ERR, "%s: KSGmainAttach error %d: %s", "InitializeKovaService", error.code,
               logText(error.message));
    }
    KSErrorFree(&error);
}

static bool registerNamedConnection() {
    BusError error;
    KSErrorInit(&error);
    BusHandle *named = nullptr;
    bool ok = false;
    if (!KSRegister(VYX_SERVICE_NAME, &named, &error)) {
        vyxLog(LOG_ERR, "%s: KSRegister error %d: %s", "registerKovaService", error.code,
               logText(error.message));
    } else {
        s_exitTimer.handle = named;
        vyxLog(LOG_DEBUG, "About to Register category");
        if (!KSRegisterCategory(named, "/", methods, nullptr, nullptr, &error))
            vyxLog(LOG_ERR, "%s: KSRegisterCategory error %d: %s", "registerKovaService",
                   error.code, logText(error.message));
        else if (!KSGmainAttach(named, s_mainLoop, &error))
            vyxLog(LOG_ERR, "%s: KSGmainAttach error %d: %s", "registerKovaService", error.code,
                   logText(error.message));
        else
            ok = true;
    }
    KSErrorFree(&error);
    return ok;
}

bool serviceStart() {
    g_unix_signal_add(SIGINT, onSigint, nullptr);
    vyxLog(LOG_DEBUG, "vyxstaged started with 'main()'");
    removeWriteLeftovers();
    s_mainLoop = g_main_loop_new(nullptr, FALSE);
    if (!s_mainLoop) {
        vyxLog(LOG_ERR, "%s: g_main_loop_new() failed", "registerKovaService");
        return false;
    }
    registerUnnamedConnection();
    determineKovaDemoPref(nullptr);
    if (!registerNamedConnection())
        return false;
    vyxLog(LOG_DEBUG, "Set exit timer handle");
    restartExitTimer(EXIT_TIMER_SHORT_MS);
    return true;
}

void serviceRun() {
    vyxLog(LOG_DEBUG, "Start main loop");
    g_main_loop_run(s_mainLoop);
}

int serviceFinish() {
    if (s_mainLoop) {
        vyxLog(LOG_DEBUG, "Error in the vyxService\n");
        deinitializeKovaService();
        closeNamedConnection();
        g_main_loop_unref(s_mainLoop);
        s_mainLoop = nullptr;
    }
    return 0;
}
