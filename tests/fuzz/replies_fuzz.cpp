// Replies to the daemon's calls come from other programs on the bus. The first byte picks the
// reply callback, the second the state the daemon is in when the reply arrives, arranged so that
// the callback has work to do; the rest is the reply payload, and maybe replies after it.
#include <glib.h>

#include <algorithm>
#include <string>

#include "common/json_access.h"
#include "fuzz_daemon.h"
#include "monitors/connmgr.h"
#include "monitors/display.h"
#include "provision/download.h"
#include "provision/install.h"
#include "provision/install_status.h"
#include "provision/run_state.h"
#include "service/app_control.h"
#include "service/demo_state.h"
#include "service/running_apps.h"
#include "service/service.h"
#include "store/app_listing.h"
#include "sysinfo/download_info.h"
#include "sysinfo/sysinfo.h"

#define LISTING                                                                                    \
    "{\"returnValue\":true,\"apps\":[{\"id\":\"com.velto.app.vyx\",\"version\":\"1.0\","           \
    "\"userInstalled\":true},{\"id\":\"com.velto.old\",\"version\":\"2.1.3\",\"userInstalled\":"   \
    "false,\"icon\":\"\\/media\\/cryptofs\\/apps\\/usr\\/velto\\/x.png\"}]}"
#define GOOD_TOKEN                                                                                 \
    "{\"returnValue\":true,\"token\":\"t\",\"accountAlias\":\"a\",\"accountState\":\"s\"}"

static void arrangeSystemInfo(bool present) {
    fuzzReply(accountTokenCB, present ? GOOD_TOKEN : "{\"returnValue\":false}");
    fuzzReply(serverUrlCB, present ? "{\"serverUrl\":\"http://127.0.0.1:9/\"}" : "{}");
    if (!present)
        return;
    fuzzReply(carrierCB, "{\"values\":[{\"com.velto.properties.machineName\":\"fenlo\"}]}");
    fuzzReply(deviceIdCB, "{\"deviceId\":\"d\"}");
    fuzzReply(localeCB, "{}");
}

static void arrangeConfig() {
    static const char conf[] = "[IPKG]\nINSTALL=com.velto.app.vyx;com.velto.vyx\n"
                               "WHITELIST=com.velto.keep\nRUN=com.velto.app.vyx.app\nREBOOT=true\n";
    fuzzWriteFile("/var/usr/velto/vyxstage.conf", reinterpret_cast<const uint8_t *>(conf),
                  sizeof conf - 1);
}

// A run walking the install list, two of whose installs were accepted.
static void arrangeInstalls(unsigned state) {
    s_ppFiles = g_strsplit("com.velto.a;com.velto.b;;com.velto.c", ";", -1);
    s_FileCount = 4;
    s_FileInfoOffset = state & 8 ? 4 : 1;
    s_ppInstallFiles = g_strsplit("com.velto.a;com.velto.b", ";", -1);
    s_InstallFileCount = 2;
    s_InstallFileCompleted = state & 16 ? 1 : 0;
    if (state & 16)
        s_ppInstallFiles[0][0] = '\t';
    s_bWaitingInstallStatus = true;
    addToInstallProgressTable("com.velto.a", 1000);
    addToInstallProgressTable("com.velto.b", 50000000);
    setDownloadStateMode(DSM_INSTALLING, "fuzz");
}

static void arrangeDeletes() {
    s_ppPurgeFiles = g_strsplit("com.velto.x; ;com.velto.y", ";", -1);
    s_PurgeFileCount = 3;
    s_PurgeFileOffset = 0;
}

struct Reply {
    BusMethodHandler callback;
    void (*arrange)(unsigned state);
};

static const Reply s_replies[] = {
    {determineKovaDemoPrefCB,
     [](unsigned state) {
         // A held "demoState" call, at boot or not, that the preference answers.
         determineKovaDemoPref(nullptr);
         KSDispatchForTest(getExitTimer()->handle, "/", "demoState",
                           state & 8 ? "{\"onBoot\":true}" : "{}");
     }},
    {prvDetermineKovaDemoPrefCB, [](unsigned) { determineKovaDemoPref(nullptr); }},
    {accountTokenCBboot, nullptr},
    {accountTokenCB,
     [](unsigned state) {
         fuzzReply(accountTokenCB, "{}");
         requestSystemInfo();
         KSDispatchForTest(getExitTimer()->handle, "/", "downloadAppInfo", "{}");
         setRunLocalFileDownload(state & 8);
     }},
    {carrierCB, [](unsigned) { requestSystemInfo(); }},
    {deviceIdCB, [](unsigned) { requestSystemInfo(); }},
    {localeCB, [](unsigned) { requestSystemInfo(); }},
    {serverUrlCB,
     [](unsigned state) {
         requestSystemInfo();
         setRunLocalFileDownload(state & 8);
     }},
    {prvLaunchVYXCB, nullptr},
    {vyxCoreMessageCB,
     [](unsigned) {
         launchVYXCoreMessage("check", nullptr, nullptr);
         launchVYXCoreMessage("continueInstall", "name", "42");
     }},
    {vyxCoreMessageDelayCB,
     [](unsigned) {
         launchVYXCoreMessage("check", nullptr, nullptr);
         launchVYXCoreMessage("noProfile", nullptr, nullptr);
     }},
    {startVYXPidCB, nullptr},
    {startVYXPidXCB, nullptr},
    {killVYXPidCB, nullptr},
    {killVYXPidXCB, nullptr},
    {killPIDCB, nullptr},
    {listPkgsCB, nullptr},
    {listPkgsCBRun, [](unsigned) { arrangeConfig(); }},
    {listPkgsCBReconcile,
     [](unsigned state) {
         // The run's starting listing, then the end of its install phase.
         arrangeConfig();
         setDownloadReason(state & 8);
         fuzzReply(accountTokenCB, "{\"returnValue\":false}");
         fuzzReply(listPkgsCBRun, LISTING);
     }},
    {installPackageCB, arrangeInstalls},
    {deletePackageCB, [](unsigned) { arrangeDeletes(); }},
    {installStatusCB, arrangeInstalls},
    {connMgrCB, [](unsigned) { getConnectionStatus(true); }},
    {setAllow1xDownloadsCB, [](unsigned state) { setAllow1xDownloads(state & 8); }},
    {setPowerMonitorCB, nullptr},
    {prvRunVYXCB, [](unsigned) { setDownloadStateMode(DSM_STARTUP, "fuzz"); }},
    {genericCB, nullptr},
};
constexpr size_t REPLY_COUNT = sizeof s_replies / sizeof s_replies[0];

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzzStartDaemon();
    fuzzResetDaemon();
    FuzzInput input = {data, size};
    const Reply &reply = s_replies[input.byte() % REPLY_COUNT];
    unsigned state = input.byte();
    fuzzReply(determineKovaDemoPrefCB,
              state & 1 ? "{\"vyxStageRunning\":true}" : "{\"vyxStageRunning\":false}");
    arrangeSystemInfo(state & 2);
    fuzzReply(connMgrCB, state & 4 ? "{\"isInternetConnectionAvailable\":false}"
                                   : "{\"isInternetConnectionAvailable\":true,\"wifi\":"
                                     "{\"state\":\"connected\"},\"wan\":{\"network\":\"x\"}}");
    if (reply.arrange)
        reply.arrange(state);
    // A NUL ends a bus payload, so it also separates the replies of an input: the first goes to
    // the callback picked above; each later one starts with a byte that picks its own callback
    // and meets whatever state the replies before it left.
    std::string rest(reinterpret_cast<const char *>(input.data), input.size);
    BusMethodHandler callback = reply.callback;
    size_t at = 0;
    for (unsigned count = 0; count < 16; count++) {
        if (count) {
            if (at >= rest.size())
                break;
            callback = s_replies[static_cast<uint8_t>(rest[at++]) % REPLY_COUNT].callback;
        }
        size_t nul = std::min(rest.find('\0', at), rest.size());
        fuzzReply(callback, rest.substr(at, nul - at).c_str());
        at = nul + 1;
    }
    return 0;
}
