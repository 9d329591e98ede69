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

// Starts the delete chain and the install walk; with nothing to install, ends the install phase.
void beginInstallDelete();
// Walks on to the next package that needs an install; false when the store failed twice for one.
bool processNextPackageInfo();
bool installPackageCB(BusHandle *handle, BusMessage *reply, void *context);
void deletePackage();
bool deletePackageCB(BusHandle *handle, BusMessage *reply, void *context);
// Ends the install phase, whatever ended it: "startVYX" or "failConnect", the final listing asked
// (its reply leads to the demonstration's start), and on success the profile list saved.
void processEndPackageInfo(int failType, const char *caller);
