#include "store/profile.h"

#include <glib.h>
#include <glib/gstdio.h>

#include "platform/paths.h"

void deleteProfileFileList() {
    std::string path = vyxPath(PROFILE_LIST_FILE);
    if (g_file_test(path.c_str(), G_FILE_TEST_EXISTS))
        g_unlink(path.c_str());
}

bool loadProfilePackageList(CURL *) {
    return false;
}
void verifyProfilePackages(const char *) {}
bool saveProfileFileList(StrArray) {
    return true;
}
