// What a caller of the daemon waits on: the reply to "demoState", the reply to "downloadAppInfo"
// once the information is gathered, and the time from a display event to the video's launch.
// The whole daemon runs in-process on a private bus with the platform services played by fakes.
#include <benchmark/benchmark.h>

#include <gio/gio.h>
#include <stdlib.h>

#include <memory>

#include "bus_test.h"
#include "platform/host.h"
#include "platform/log.h"
#include "platform_fakes.h"
#include "service/demo_state.h"
#include "service/service.h"
#include "sysinfo/sysinfo.h"

namespace {

const char OK[] = R"({"returnValue":true})";

struct Platform : PlatformFakes {
    int videoLaunches = 0;

    Platform() {
        appManager.reply("/", "running", R"({"returnValue":true,"running":[]})")
            .handle("/", "launch",
                    [this](BusHandle *h, BusMessage *m) {
                        if (strstr(KSMessageGetPayload(m), "\"playVideo\":true"))
                            ++videoLaunches;
                        KSMessageReply(h, m, OK, nullptr);
                    })
            .reply("/", "close", OK)
            .reply("/", "listPackages", R"({"returnValue":true,"apps":[]})");
        systemService
            .handle(
                "/", "getPreferences",
                [](BusHandle *h, BusMessage *m) {
                    bool locale = strstr(KSMessageGetPayload(m), "locale") != nullptr;
                    KSMessageReply(
                        h, m,
                        locale
                            ? R"({"returnValue":true,"locale":{"languageCode":"en","countryCode":"us"}})"
                            : R"({"returnValue":true,"vyxStageRunning":true})",
                        nullptr);
                })
            .reply("/", "setPreferences", OK);
        accounts
            .reply(
                "/", "getAccountToken",
                R"({"returnValue":true,"token":"t","accountAlias":"a","accountState":"s","uniqueId":"u"})")
            .reply("/", "getServerUrl", R"({"returnValue":true,"serverUrl":"http://127.0.0.1/"})");
        properties.reply(
            "/systemProperties", "getSomeSysPropertiesObj",
            R"({"returnValue":true,"values":[{"com.velto.properties.DMCARRIER":"ROW","com.velto.properties.machineName":"tarsk"}]})");
        deviceProfile.reply("/", "getDeviceId", R"({"returnValue":true,"deviceId":"d"})");
        activities.reply("/", "create", OK);
        connMgr.silent("/", "getstatus");
        for (FakeService *fake : allFakes())
            fake->start();
    }
};

Platform *s_platform = nullptr;
BusClient *s_client = nullptr;

void requireReply(benchmark::State &state, const std::string &reply) {
    if (reply.empty())
        state.SkipWithError("no reply");
}

void BM_DemoStateReply(benchmark::State &state) {
    for (auto _ : state)
        requireReply(state, s_client->call("velto://com.velto.vyxService/demoState", "{}"));
}
BENCHMARK(BM_DemoStateReply)->UseRealTime();

void BM_DownloadAppInfoReply(benchmark::State &state) {
    // The first request gathers the information; the ones measured find it all present.
    s_client->call("velto://com.velto.vyxService/downloadAppInfo", "{}");
    for (auto _ : state)
        requireReply(state, s_client->call("velto://com.velto.vyxService/downloadAppInfo", "{}"));
}
BENCHMARK(BM_DownloadAppInfoReply)->UseRealTime();

void BM_DisplayOffToVideoLaunch(benchmark::State &state) {
    const std::string event =
        R"({"$activity":{"trigger":{"event":"displayOff","state":"off","dockMode":false}}})";
    for (auto _ : state) {
        int before = s_platform->videoLaunches;
        s_client->send("velto://com.velto.vyxService/displayChange", event);
        if (!waitUntil([&] { return s_platform->videoLaunches > before; }, "the video launch"))
            state.SkipWithError("no launch");
    }
}
BENCHMARK(BM_DisplayOffToVideoLaunch)->UseRealTime();

} // namespace

// The idle exit must not end a benchmark run.
static void stayAlive(int) {}

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    g_autofree char *root = g_dir_make_tmp("vyxbench-XXXXXX", nullptr);
    setenv("VYXSTAGED_ROOT", root, 1);
    GTestDBus *bus = g_test_dbus_new(G_TEST_DBUS_NONE);
    g_test_dbus_up(bus);
    setenv("DBUS_SESSION_BUS_ADDRESS", g_test_dbus_get_bus_address(bus), 1);
    vyxLogSetSink([](int, const char *, void *) {}, nullptr); // commentary is not measured
    static const HostSeams seams = {[] { return int64_t(g_get_real_time() / G_USEC_PER_SEC); },
                                    [](unsigned) {}, stayAlive};
    hostSetSeams(&seams);

    auto platform = std::make_unique<Platform>();
    s_platform = platform.get();
    if (!serviceStart() ||
        !waitUntil([] { return isDemoStatusLoaded() == 1; }, "the demo preference")) {
        fprintf(stderr, "the daemon did not come up\n");
        return 1;
    }
    auto client = std::make_unique<BusClient>();
    s_client = client.get();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();

    client.reset();
    serviceFinish();
    platform.reset();
    g_test_dbus_down(bus);
    g_object_unref(bus);
    return 0;
}
