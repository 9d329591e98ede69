#include "provision/config.h"

bool loadDownloadFileList() {
    return false;
}
bool getCurrentVyxApp(char *, bool *) {
    return false;
}
const char *getDynamicConfigFileName() {
    return DYNAMIC_CONFIG_FILE;
}
void createDeleteList() {}
void loadProfileFilesList(const char *) {}
void clearProfileFilesList() {}
int updateFileListFromProfile() {
    return 0;
}
bool updateDeleteListFromProfile(StrArray, unsigned) {
    return false;
}
