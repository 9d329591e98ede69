// The demo mode's on/off state, kept in the system preferences, and the methods "demoState",
// "setDemoState" and "toggleDemo"; the boot-time start-up of the demonstration.
#pragma once

#include "platform/bus.h"

#define DEFAULT_VYX_APP_ID "com.velto.app.vyx"

bool determineKovaDemoPref(BusMethodHandler callback);
bool determineKovaDemoPrefCB(BusHandle *handle, BusMessage *reply, void *context);
bool setKovaDemoPref(const char *details);
void clearKovaDemoPref();

void setVyxAppName(const char *name);
const char *getVyxAppName();
const char *getVyxPackageName();

int isDemoStatusLoaded(); // -1 undefined, 0 being read, 1 known
bool isDemoRunning();

bool getDemoState(BusHandle *handle, BusMessage *message, void *context);
bool setDemoState(BusHandle *handle, BusMessage *message, void *context);
bool toggleDemo(BusHandle *handle, BusMessage *message, void *context);
bool accountTokenCBboot(BusHandle *handle, BusMessage *reply, void *context);

// Answers a held "demoState" call when the exit timer ends the process; `caller` names the
// line that announces the answer.
void sendDemoStatusResponse(const char *caller);
