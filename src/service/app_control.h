// Launch-parameter messages to the demonstration application and its core application, and
// the one-slot queue that paces the core application's pop-ups.
#pragma once

#include "platform/bus.h"
#include "platform/json.h"

#define VYX_CORE_APP_ID "com.velto.app.vyxcore"
#define APP_MANAGER_LAUNCH "velto://com.velto.applicationManager/launch"
#define APP_MANAGER_RUNNING "velto://com.velto.applicationManager/running"
#define APP_MANAGER_CLOSE "velto://com.velto.applicationManager/close"
#define APP_MANAGER_LIST_PACKAGES "velto://com.velto.applicationManager/listPackages"

struct PendingCoreMessage {
    char message[101];
    char name[101];
    char percent[101];
};

void launchVYXAction(const char *action, const char *extra, const char *appId);
bool prvLaunchVYXCB(BusHandle *handle, BusMessage *reply, void *context);
void launchVYXCoreAction(const char *action, const char *appName, bool appLaunch,
                         const char *version);
void launchVYXCoreMessage(const char *message, const char *name, const char *percent);
void prvLaunchVYXCoreMessage(const char *message, const char *name, const char *percent);
bool vyxCoreMessageCB(BusHandle *handle, BusMessage *reply, void *context);
bool vyxCoreMessageDelayCB(BusHandle *handle, BusMessage *reply, void *context);
// Process id of appId in a parsed "running" reply, or -1.
int getProcessId(const JsonNode *root, const char *appId);
