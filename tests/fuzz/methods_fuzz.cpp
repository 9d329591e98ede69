// The service's methods take their payload from any program on the bus. The first byte picks the
// method, the second the state the daemon is in when the call arrives; the rest is the payload.
#include <string.h>

#include "fuzz_daemon.h"
#include "provision/download.h"
#include "service/demo_state.h"
#include "service/service.h"
#include "sysinfo/sysinfo.h"

static const char *const s_methods[] = {
    "toggleDemo",         "setDemoState",     "demoState",      "setUserInput",
    "timedout",           "tapped",           "closetutorial",  "downloadAppInfo",
    "sendDownloadStatus", "assignConfigFile", "verifyPackages", "displayChange",
};
constexpr size_t METHOD_COUNT = sizeof s_methods / sizeof s_methods[0];

static void arrangeDemoPref(unsigned choice) {
    static const char *const prefs[] = {
        nullptr, // still being read
        "{\"returnValue\":true,\"vyxStageRunning\":false}",
        "{\"returnValue\":true,\"vyxStageRunning\":true,\"vyxStageDetails\":{}}",
        "{\"returnValue\":true,\"vyxStageRunning\":true,\"vyxStageDetails\":"
        "{\"application\":\"com.velto.app.vyx\",\"autoRun\":true}}",
    };
    if (!prefs[choice]) {
        determineKovaDemoPref(nullptr);
        return;
    }
    fuzzReply(determineKovaDemoPrefCB, prefs[choice]);
}

static void arrangeSystemInfo(bool present) {
    if (!present) {
        fuzzReply(accountTokenCB, "{\"returnValue\":false}");
        fuzzReply(serverUrlCB, "{\"returnValue\":false}");
        return;
    }
    fuzzReply(accountTokenCB, "{\"returnValue\":true,\"token\":\"t\",\"accountAlias\":\"a\","
                              "\"accountState\":\"s\",\"uniqueId\":\"u\"}");
    fuzzReply(carrierCB, "{\"returnValue\":true,\"values\":[{\"com.velto.properties.DMCARRIER\":"
                         "\"ROW\"},{\"com.velto.properties.machineName\":\"tarsk\"}]}");
    fuzzReply(deviceIdCB, "{\"returnValue\":true,\"deviceId\":\"d\"}");
    fuzzReply(localeCB, "{\"returnValue\":true,\"locale\":{\"languageCode\":\"en\","
                        "\"countryCode\":\"us\"}}");
    fuzzReply(serverUrlCB, "{\"returnValue\":true,\"serverUrl\":\"http://127.0.0.1:9/\"}");
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string &root = fuzzStartDaemon();
    static bool once = [&root] {
        static const char conf[] = "[IPKG]\nINSTALL=com.velto.app.vyx;com.velto.vyx\nRUN=a.app\n";
        fuzzWriteFile("/media/cryptofs/apps/usr/velto/applications/com.velto.demo.conf",
                      reinterpret_cast<const uint8_t *>(conf), strlen(conf));
        return !root.empty();
    }();
    (void)once;
    fuzzResetDaemon();

    FuzzInput input = {data, size};
    const char *method = s_methods[input.byte() % METHOD_COUNT];
    unsigned state = input.byte();
    arrangeDemoPref(state & 3);
    arrangeSystemInfo(state & 4);
    if (state & 8)
        setDownloadStateMode(DSM_INSTALLING, "fuzz");
    std::string payload = input.rest();
    KSDispatchForTest(getExitTimer()->handle, "/", method, payload.c_str());
    // The same call again meets whatever the first one held or started.
    if (state & 16)
        KSDispatchForTest(getExitTimer()->handle, "/", method, payload.c_str());
    return 0;
}
