// The configuration key files and the package lists a provisioning run works on: the install
// list, the whitelist, the delete list and the store profile's list.
#pragma once

#include "common/lists.h"

#define DYNAMIC_CONFIG_FILE "/var/usr/velto/vyxstage.conf"
#define CARRIER_CONFIG_FILE "/usr/velto/vyxstage/carrier.conf"
#define DEFAULT_CONFIG_FILE "/usr/velto/vyxstage/vyxstage.conf"
#define CONFIG_GROUP "IPKG"

// Loads the first qualifying key file of the run; false when none had a readable "INSTALL".
bool loadDownloadFileList();
// appId: a buffer of 101 characters or null; reboot: null or where the "REBOOT" flag goes.
bool getCurrentVyxApp(char *appId, bool *reboot);
const char *getDynamicConfigFileName(); // as on the device: callers root it with vyxPath()
// The delete list from the user-installed packages of the cached listing.
void createDeleteList();

void loadProfileFilesList(const char *text);
void clearProfileFilesList();
int updateFileListFromProfile();
bool updateDeleteListFromProfile(StrArray names, unsigned count);
