// The user's store profile and its saved list file.
#pragma once

#define PROFILE_LIST_FILE "/var/usr/velto/vyxstageprofile.list"

void deleteProfileFileList();
