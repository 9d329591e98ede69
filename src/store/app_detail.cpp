#include "store/app_detail.h"

bool doesPackageExist(const char *, char *) {
    return false;
}
bool checkBazaro(CURL *, const char *, const char *, bool *, char **, int32_t *) {
    return false;
}
void appDetailMemoryFree() {}
