// The two methods that start provisioning on request: "assignConfigFile" puts an application's
// configuration key file in place (or takes it away), "verifyPackages" checks what is on disk.
#pragma once

#include "platform/bus.h"

#define APPLICATIONS_DIR_FORMAT "/media/cryptofs/apps/usr/velto/applications/%s"

bool assignConfigFile(BusHandle *handle, BusMessage *message, void *context);
bool verifyPackages(BusHandle *handle, BusMessage *message, void *context);
// Whether an application may name this file: below the applications directory, never outside.
bool isValidConfigFileName(const char *name);
