#include "provision/install.h"

void beginInstallDelete() {}
bool processNextPackageInfo() {
    return false;
}
bool installPackageCB(BusHandle *, BusMessage *, void *) {
    return true;
}
void deletePackage() {}
bool deletePackageCB(BusHandle *, BusMessage *, void *) {
    return true;
}
void processEndPackageInfo(int, const char *) {}
