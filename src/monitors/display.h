// The display activity and the "displayChange" method that starts the demonstration video.
#pragma once

#include "platform/bus.h"

void setPowerMonitor();
bool setPowerMonitorCB(BusHandle *handle, BusMessage *reply, void *context);
bool displayChange(BusHandle *handle, BusMessage *message, void *context);
bool prvIsIndicativeDisplayEvent(const char *event, const char *state, bool dockMode);
void prvFormatLaunchVyxAction();
bool prvDetermineKovaDemoPrefCB(BusHandle *handle, BusMessage *reply, void *context);
