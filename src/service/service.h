// The process: entry, the two bus connections, the method table, the idle exit timer, the
// status timer primitives, SIGINT and the shutdown order.
#pragma once

#include <glib.h>
#include <stdint.h>

#include "platform/bus.h"

#define VYX_SERVICE_NAME "com.velto.vyxService"

constexpr guint32 EXIT_TIMER_SHORT_MS = 10000;
constexpr guint32 EXIT_TIMER_LONG_MS = 300000;

struct TimerRecord {
    GSource *source;
    guint32 interval;
    guint32 sourceId;
    BusHandle *handle; // exit timer only: the named connection
};

GMainLoop *getMainLoop();
BusHandle *getKovaServiceHandle();
TimerRecord *getExitTimer();
TimerRecord *getStatusTimer();

bool startExitTimer(TimerRecord *timer, GSourceFunc callback, guint32 intervalMs);
bool stopExitTimer(TimerRecord *timer);
bool startStatusTimer(TimerRecord *timer, GSourceFunc callback, guint32 intervalMs);
bool stopStatusTimer(TimerRecord *timer);
void stopAllTimers();
gboolean exitTimerCB(gpointer data);
// The next expiry of the exit timer re-arms it once more instead of ending the process.
void setRepeatTimer(bool repeat);

void sigproc(int signal);
bool deinitializeKovaService();
bool notSupported(BusHandle *handle, BusMessage *message, void *context);

// main() is serviceStart, serviceRun and serviceFinish; tests drive the loop themselves
// between serviceStart and their own teardown.
bool serviceStart(); // start-up steps up to arming the first exit timer
void serviceRun();   // runs the loop
int serviceFinish(); // the loop returned or registration failed

// How every module re-arms the idle exit: startExitTimer(getExitTimer(), exitTimerCB, ms).
bool restartExitTimer(guint32 intervalMs);

// An outgoing one-shot call through the unnamed connection. A call that cannot be sent is
// logged at error priority as "<tag>: KSCall error <code>: <text>".
bool callService(const char *tag, const char *uri, const char *payload, BusMethodHandler callback,
                 void *context = nullptr);
