#include "service/running_apps.h"

#include <glib.h>

#include "common/json_access.h"
#include "platform/log.h"
#include "service/app_control.h"
#include "service/demo_state.h"
#include "service/service.h"
#include "sysinfo/sysinfo.h"

#define CLOSE_FORMAT "{\"processId\":\"%d\"}"
#define CORE_STOP_FORMAT "{\"id\":\"%s\",\"params\":{\"action\":\"stopVyx\"}}"
#define DEMO_EXIT_FORMAT "{\"id\":\"%s\",\"params\":{\"action\":\"exit\"}}"

enum WhatToDo {
    WTD_START = 1,
    WTD_STOP = 2,
    WTD_START_CLOSE_PHONE = 4,
    WTD_STOP_CLOSE_PHONE = 5,
};

// Only tells an expected failure reply from a stray one in the log.
static int s_outstandingPidCbRq = 0;

void startupVYX(bool closePhone) {
    // The demonstration application asks for the system information as soon as it runs.
    if (!isAllSystemInfoPresent("startupVYX") && !isSystemInfoRequestInProcess("startupVYX"))
        requestSystemInfo();
    vyxLog(LOG_DEBUG, "%s: call processPIDs ", "startupVYX");
    processPIDs(closePhone ? startVYXPidXCB : startVYXPidCB);
}

void killVYX(bool closePhone) {
    processPIDs(closePhone ? killVYXPidXCB : killVYXPidCB);
}

bool processPIDs(BusMethodHandler callback) {
    vyxLog(LOG_DEBUG, "%s: Get running apps", "processPIDs");
    bool sent = callService("processPIDs", APP_MANAGER_RUNNING, "{}", callback);
    if (sent)
        s_outstandingPidCbRq++;
    return sent;
}

bool startVYXPidCB(BusHandle *, BusMessage *reply, void *) {
    vyxLog(LOG_DEBUG, "%s: called", "startVYXPidCB");
    processPIDsCB(reply, WTD_START);
    return true;
}

bool startVYXPidXCB(BusHandle *, BusMessage *reply, void *) {
    vyxLog(LOG_DEBUG, "%s: called", "startVYXPidXCB");
    processPIDsCB(reply, WTD_START_CLOSE_PHONE);
    return true;
}

bool killVYXPidCB(BusHandle *, BusMessage *reply, void *) {
    vyxLog(LOG_DEBUG, "%s: called", "killVYXPidCB");
    processPIDsCB(reply, WTD_STOP);
    return true;
}

bool killVYXPidXCB(BusHandle *, BusMessage *reply, void *) {
    vyxLog(LOG_DEBUG, "%s: called", "killVYXPidXCB");
    processPIDsCB(reply, WTD_STOP_CLOSE_PHONE);
    return true;
}

static void closePhoneApp(const JsonNode *root) {
    int phonePid = getProcessId(root, PHONE_APP_ID);
    vyxLog(LOG_DEBUG, "processPIDsCB() #3: PhoneApp PID: %d", phonePid);
    if (phonePid > 0)
        killPID(phonePid);
}

static void startDemo(const JsonNode *root, int whatToDo) {
    // The core application runs while provisioning shows its pop-ups; the demonstration
    // application is started by provisioning when it ends.
    int corePid = getProcessId(root, VYX_CORE_APP_ID);
    if (corePid >= 1) {
        vyxLog(LOG_DEBUG, "processPIDsCB() #1: VYX Core is running, pid: %d", corePid);
    } else {
        int vyxPid = getProcessId(root, getVyxAppName());
        if (vyxPid < 1) {
            int firstUsePid = getProcessId(root, FIRST_USE_APP_ID);
            vyxLog(LOG_DEBUG, "processPIDsCB() #1: Start VYX video, F-U PID: %d", firstUsePid);
            if (firstUsePid > 0)
                killPID(firstUsePid);
            launchVYXAction("initialize", nullptr, nullptr);
        } else {
            vyxLog(LOG_DEBUG, "processPIDsCB() #1: VYX [%s] is running, pid: %d", getVyxAppName(),
                   vyxPid);
        }
    }
    if (whatToDo == WTD_START_CLOSE_PHONE)
        closePhoneApp(root);
}

static void stopDemo(const JsonNode *root, int whatToDo) {
    static const char *const logName = "processPIDsCB";
    int vyxPid = getProcessId(root, getVyxAppName());
    int firstUsePid = getProcessId(root, FIRST_USE_APP_ID);
    vyxLog(LOG_DEBUG, "processPIDsCB() #2: VYX [%s] PID: %d, F-U PID: %d", getVyxAppName(), vyxPid,
           firstUsePid);
    if (vyxPid > 0)
        killPID(vyxPid);
    if (firstUsePid > 0)
        killPID(firstUsePid);
    if (whatToDo == WTD_STOP_CLOSE_PHONE)
        closePhoneApp(root);

    // Sent whatever runs: either application may be on its way up.
    g_autofree char *coreStop = g_strdup_printf(CORE_STOP_FORMAT, VYX_CORE_APP_ID);
    vyxLog(LOG_DEBUG, "%s: vyxCore changed: %s", logName, coreStop);
    callService(logName, APP_MANAGER_LAUNCH, coreStop, genericCB);
    g_autofree char *demoExit = g_strdup_printf(DEMO_EXIT_FORMAT, getVyxAppName());
    vyxLog(LOG_DEBUG, "%s: Send exit to vyx application: %s", logName, demoExit);
    callService(logName, APP_MANAGER_LAUNCH, demoExit, genericCB);
}

void processPIDsCB(BusMessage *reply, int whatToDo) {
    static const char *const self = "processPIDsCB";
    JsonTree root = prvKSMessageGetPayloadJSON(reply);
    if (ignoreJsonResponse(root.get(), self))
        return;
    restartExitTimer(EXIT_TIMER_SHORT_MS);
    const char *payload = logText(KSMessageGetPayload(reply));
    vyxLog(LOG_DEBUG, "processPIDsCB #%d: message with payload:%s", whatToDo, payload);

    if (isJsonObjectFalse(prvJsonFindFirstLabel(root.get(), "returnValue", self))) {
        if (s_outstandingPidCbRq >= 1) {
            vyxLog(LOG_ALERT, "%s #%d: fail CB return detected: %s", self, whatToDo, payload);
            s_outstandingPidCbRq--;
        }
        return;
    }
    s_outstandingPidCbRq--;

    switch (whatToDo) {
    case WTD_START:
    case WTD_START_CLOSE_PHONE:
        startDemo(root.get(), whatToDo);
        break;
    case WTD_STOP:
    case WTD_STOP_CLOSE_PHONE:
        stopDemo(root.get(), whatToDo);
        break;
    default:
        vyxLog(LOG_ALERT, "%s: Unexpected 'whatToDo' parameter value: %d", self, whatToDo);
        break;
    }
}

void killPID(int processId) {
    g_autofree char *payload = g_strdup_printf(CLOSE_FORMAT, processId);
    vyxLog(LOG_DEBUG, "%s: Killing PID: %s", "killPID", payload);
    callService("killPID", APP_MANAGER_CLOSE, payload, killPIDCB);
}

bool killPIDCB(BusHandle *, BusMessage *reply, void *) {
    vyxLog(LOG_DEBUG, "killPIDCD() %s", logText(KSMessageGetPayload(reply)));
    return true;
}
