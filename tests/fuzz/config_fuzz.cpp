// The configuration key files are written by whoever provisions the device or by an application
// through "assignConfigFile". The first byte picks which of the three files the input becomes;
// the rest is its content, read the way a provisioning run reads it.
#include "fuzz_daemon.h"
#include "provision/config.h"
#include "store/app_listing.h"

#define LISTING                                                                                    \
    "{\"returnValue\":true,\"apps\":[{\"id\":\"com.velto.app.vyx\",\"userInstalled\":true},"       \
    "{\"id\":\"com.velto.keep\",\"userInstalled\":true},{\"id\":\"com.velto.user\","               \
    "\"userInstalled\":true},{\"id\":\"com.velto.c\",\"userInstalled\":true}]}"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzzStartDaemon();
    fuzzResetDaemon();
    static const char *const files[] = {DYNAMIC_CONFIG_FILE, CARRIER_CONFIG_FILE,
                                        DEFAULT_CONFIG_FILE};
    FuzzInput input = {data, size};
    fuzzWriteFile(files[input.byte() % 3], input.data, input.size);

    fuzzReply(listPkgsCB, LISTING);
    loadDownloadFileList();
    char appId[101];
    bool reboot = false;
    getCurrentVyxApp(appId, &reboot);
    getCurrentVyxApp(nullptr, nullptr);
    createDeleteList();
    loadProfileFilesList("com.velto.user;com.velto.b;;com.velto.c");
    updateFileListFromProfile();
    return 0;
}
