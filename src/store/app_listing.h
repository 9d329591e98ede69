// The application manager's installed-package listing: the cached listing, the listing that
// started the current provisioning run, and their reply callbacks.
#pragma once

#include "platform/bus.h"

bool listPkgsCB(BusHandle *handle, BusMessage *reply, void *context);
bool listPkgsCBRun(BusHandle *handle, BusMessage *reply, void *context);
const char *getPkgListJSON();
bool isFileDownloadInProcess();
void clearPkgListJSON();
void getapplicationinfoMemoryFree();
