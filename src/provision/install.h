// The install walk over the install list, the delete chain, and the end of the install phase.
#pragma once

#include "platform/bus.h"

#define INSTALL_SERVICE_INSTALL "velto://com.velto.appInstallService/install"
#define INSTALL_SERVICE_REMOVE "velto://com.velto.appInstallService/remove"
#define INSTALL_SERVICE_STATUS "velto://com.velto.appInstallService/status"

enum FailType {
    FAIL_NONE = 0,
    FAIL_CONNECT = 2,
    FAIL_INSTALL = 3,
    FAIL_ACCOUNT = 4,
};

void beginInstallDelete();
bool processNextPackageInfo();
bool installPackageCB(BusHandle *handle, BusMessage *reply, void *context);
void deletePackage();
bool deletePackageCB(BusHandle *handle, BusMessage *reply, void *context);
void processEndPackageInfo(int failType, const char *caller);
