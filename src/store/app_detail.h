// The store's package detail query, the version check and the install request it leads to.
#pragma once

#include <curl/curl.h>
#include <stdint.h>

// Whether the cached listing holds the package; version: null or a buffer of 100 characters.
bool doesPackageExist(const char *packageId, char *version);
// True when the store's answer was understood. found: 1 known, 0 unknown to the store;
// installText: a heap install request when the package must be installed or updated.
bool checkBazaro(CURL *handle, const char *packageId, const char *installedVersion, bool *found,
                 char **installText, int32_t *size);
// The detail query's request and reply texts, released when the process ends.
void appDetailMemoryFree();
