// The store's replies arrive over HTTP in whatever pieces the network makes of them. A server on
// 127.0.0.1 sends the input as the reply body in chunks of sizes the input chooses, NUL bytes
// included, to the detail query or the profile query, which parse what they put together.
#include <glib.h>

#include <mutex>

#include "fuzz_daemon.h"
#include "platform/curl_dl.h"
#include "provision/config.h"
#include "provision/download.h"
#include "store/app_detail.h"
#include "store/profile.h"
#include "store_server.h"
#include "sysinfo/sysinfo.h"

static std::mutex s_mutex;
static StoreReply s_reply;

static StoreServer &server() {
    static StoreServer instance([](const StoreRequest &) {
        std::lock_guard<std::mutex> lock(s_mutex);
        return s_reply;
    });
    return instance;
}

// The run's lists the profile is merged into: an install list, a whitelist and a delete list.
static void arrangeRun() {
    static const char conf[] = "[IPKG]\nINSTALL=com.velto.a;com.velto.b\n"
                               "WHITELIST=com.velto.keep\nSKIPONRAMP=false\n";
    fuzzWriteFile("/var/usr/velto/vyxstage.conf", reinterpret_cast<const uint8_t *>(conf),
                  sizeof conf - 1);
    static const char saved[] = "com.velto.gone;com.velto.a;;com.velto.keep;com.velto.b";
    fuzzWriteFile(PROFILE_LIST_FILE, reinterpret_cast<const uint8_t *>(saved), sizeof saved - 1);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static CURL *handle = [] {
        fuzzStartDaemon();
        std::string url = "{\"serverUrl\":\"" + server().url() + "\"}";
        fuzzReply(serverUrlCB, url.c_str());
        return curlEasyInit();
    }();
    fuzzResetDaemon();
    server().forgetRequests();

    FuzzInput input = {data, size};
    unsigned mode = input.byte();
    StoreReply reply;
    reply.status = mode & 2 ? 500 : 200;
    unsigned chunks = input.byte() % 8 + 1;
    size_t sizes[8];
    for (unsigned i = 0; i < chunks; i++)
        sizes[i] = input.byte() + 1u;
    for (unsigned i = 0; i < chunks && input.size; i++) {
        size_t take = i + 1 == chunks ? input.size : MIN(sizes[i], input.size);
        reply.chunks.emplace_back(reinterpret_cast<const char *>(input.data), take);
        input.data += take;
        input.size -= take;
    }
    {
        std::lock_guard<std::mutex> lock(s_mutex);
        s_reply = reply;
    }

    if (mode & 1) {
        arrangeRun();
        loadDownloadFileList();
        loadProfilePackageList(handle);
        return 0;
    }
    static const char *const installed[] = {"", "1.0", "2.5.1", "1.0.0-beta"};
    bool found = false;
    char *installText = nullptr;
    int32_t packageSize = 0;
    checkBazaro(handle, "com.velto.a", installed[(mode >> 2) & 3], &found, &installText,
                &packageSize);
    g_free(installText);
    return 0;
}
