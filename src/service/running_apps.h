// Starting and stopping the demonstration from the application manager's running list.
#pragma once

#include "platform/bus.h"

#define FIRST_USE_APP_ID "com.velto.app.firstuse"
#define PHONE_APP_ID "com.velto.app.phone"

void startupVYX(bool closePhone);
void killVYX(bool closePhone);
bool processPIDs(BusMethodHandler callback);
bool startVYXPidCB(BusHandle *handle, BusMessage *reply, void *context);
bool startVYXPidXCB(BusHandle *handle, BusMessage *reply, void *context);
bool killVYXPidCB(BusHandle *handle, BusMessage *reply, void *context);
bool killVYXPidXCB(BusHandle *handle, BusMessage *reply, void *context);
void processPIDsCB(BusMessage *reply, int whatToDo);
void killPID(int processId);
bool killPIDCB(BusHandle *handle, BusMessage *reply, void *context);
