// The user's store profile, merged into the run's lists, and its saved list file.
#pragma once

#include <curl/curl.h>

#include "common/lists.h"

#define PROFILE_LIST_FILE "/var/usr/velto/vyxstageprofile.list"

bool loadProfilePackageList(CURL *handle);
// Hands the packages that left the profile since the last saved list over for deletion.
void verifyProfilePackages(const char *profileList);
bool saveProfileFileList(StrArray files);
void deleteProfileFileList();
