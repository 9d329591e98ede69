// The application manager's installed-package listing: the cached listing, the listing that
// started the current provisioning run, the user-installed rule, and the reconciliation that
// tells the run's last step which user-installed packages are new or changed.
#pragma once

#include "platform/bus.h"

bool listPkgsCB(BusHandle *handle, BusMessage *reply, void *context);
bool listPkgsCBRun(BusHandle *handle, BusMessage *reply, void *context);
bool listPkgsCBReconcile(BusHandle *handle, BusMessage *reply, void *context);

// The icon text is compared as the listing delivers it, escaped slashes included.
bool isAppUserInstalled(const char *packageId, const char *icon);
// The user-installed packages of a listing, ";"-joined, each "id" or "id<TAB>version"; a heap
// text, or null when there are none.
char *createPkgList(const char *listing, bool versioned, unsigned *count, const char *label);

const char *getPkgListJSON();
bool isFileDownloadInProcess();
void clearPkgListJSON();
void getapplicationinfoMemoryFree();
