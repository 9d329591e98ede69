// The saved profile list is a file the previous run wrote; whatever it holds now (a cut write, a
// hand edit) is set against the store's current profile to find the packages to delete. The first
// byte picks the current profile; the rest is the file's content.
#include "fuzz_daemon.h"
#include "provision/config.h"
#include "provision/install.h"
#include "provision/run_state.h"
#include "store/profile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzzStartDaemon();
    fuzzResetDaemon();
    static const char conf[] = "[IPKG]\nINSTALL=com.velto.a;com.velto.b\nWHITELIST=com.velto.w\n";
    fuzzWriteFile(DYNAMIC_CONFIG_FILE, reinterpret_cast<const uint8_t *>(conf), sizeof conf - 1);
    loadDownloadFileList();

    static const char *const profiles[] = {nullptr, "", "com.velto.a", "com.velto.x;;com.velto.w"};
    FuzzInput input = {data, size};
    unsigned choice = input.byte();
    fuzzWriteFile(PROFILE_LIST_FILE, input.data, input.size);
    verifyProfilePackages(profiles[choice % 4]);

    // The delete chain then walks the list, one answered removal at a time.
    if (choice & 4) {
        s_PurgeFileOffset = -1;
        deletePackage();
        for (unsigned i = 0; s_ppPurgeFiles && i <= s_PurgeFileCount; i++)
            fuzzReply(deletePackageCB, "{\"returnValue\":true}");
    }
    return 0;
}
