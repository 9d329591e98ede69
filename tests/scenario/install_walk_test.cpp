// The install walk and the delete chain against a store on 127.0.0.1 and a fake install service:
// which packages are asked about and in what order, what is installed or removed, and how the
// install phase ends.
#include "provision_fixture.h"

#include <atomic>
#include <deque>
#include <map>
#include <mutex>

#include "common/files.h"
#include "store_server.h"

using namespace core;
using namespace prov;

namespace {

using Lines = std::vector<std::string>;

const char VIDEO[] = "com.velto.vyx.v001"; // of the fake device's hardware

std::string textAfter(const std::string &text, const std::string &marker) {
    size_t at = text.find(marker);
    if (at == std::string::npos)
        return "";
    at += marker.size();
    return text.substr(at, text.find('\'', at) - at);
}

std::string detail(const std::string &id, const std::string &version) {
    return R"({"OutGetAppDetailV2":{"appDetail":{"id":1,"publicApplicationId":")" + id +
           R"(","title":"T","version":")" + version +
           R"(","appSize":1000,"appLocation":"L","appIcon":"I","homeURL":"H","vendorid":7}}})";
}

std::string listStatus(const std::vector<std::array<const char *, 3>> &apps) {
    std::string list;
    for (const auto &[id, state, progress] : apps)
        list += (list.empty() ? "" : ",") + std::string(R"({"id":")") + id +
                R"(","details":{"state":")" + state + R"(","progress":")" + progress + "\"}}";
    return R"({"returnValue":true,"status":{"apps":[)" + list + "]}}";
}

class InstallWalk : public ProvisionScenario {
  protected:
    void SetUp() override {
        ProvisionScenario::SetUp();
        installService.handle("/", "install", [this](BusHandle *h, BusMessage *m) {
            std::string id = textAfter(KSMessageGetPayload(m), "'id':'");
            installs.push_back(id);
            ++installCount;
            KSMessageReply(h, m, OK, nullptr);
        });
        installService.handle("/", "status", [this](BusHandle *h, BusMessage *m) {
            if (!statuses.empty())
                KSMessageReply(h, m, statuses.front().c_str(), nullptr);
            if (statuses.size() > 1)
                statuses.pop_front();
        });
    }

    // The walk over `config`'s packages; the demonstration and its video are installed already.
    void startWalk(const std::string &config, std::vector<Pkg> installed) {
        installed.push_back({"com.velto.app.vyx"});
        installed.push_back({VIDEO});
        offered.insert({{"com.velto.app.vyx", "1.0"}, {VIDEO, "1.0"}});
        before = listing(installed);
        for (const auto &[id, version] : offered)
            installed.push_back({id, version});
        after = listing(installed);
        store = std::make_unique<StoreServer>([this](const StoreRequest &request) {
            std::string id = textAfter(request.body, "'packageId':'");
            std::lock_guard<std::mutex> lock(mutex);
            queried.push_back(id + "@" + std::to_string(installCount.load()));
            auto offer = offered.find(id);
            return StoreReply{200,
                              {offer == offered.end() ? R"({"JSONException":{"message":"unknown"}})"
                                                      : detail(id, offer->second)}};
        });
        accounts.reply("/", "getServerUrl",
                       R"({"returnValue":true,"serverUrl":")" + store->url() + "\"}");
        writeFile(ROLE_FILE_SOURCE, "{\"role\":{}}");
        writeFile(CONFIG, "[IPKG]\nSKIPONRAMP=true\n" + config);
        startRun(false);
    }

    std::map<std::string, std::string> offered; // id and the version the store offers
    std::deque<std::string> statuses;           // the last one repeats
    Lines installs;
    std::atomic<int> installCount{0};
    std::mutex mutex;
    Lines queried; // "id@installs requested by then"
    std::unique_ptr<StoreServer> store;
};

struct WalkCase {
    const char *name;
    std::string config;
    std::vector<Pkg> installed;
    std::map<std::string, std::string> offered;
    std::deque<std::string> statuses;
    Lines queried, installs, removes;
    std::string end;
    bool endInstall; // the pop-up that says all went in was asked for
    friend void PrintTo(const WalkCase &c, std::ostream *os) { *os << c.name; }
};

class Walk : public InstallWalk, public testing::WithParamInterface<WalkCase> {};

TEST_P(Walk, QueriesInstallsRemovesAndEnds) {
    const WalkCase &c = GetParam();
    offered = c.offered;
    statuses = c.statuses;
    startWalk(c.config, c.installed);
    ASSERT_TRUE(waitUntil([&] { return LogCapture::hasText(c.end); }, c.end, 15000))
        << LogCapture::dump();
    ASSERT_TRUE(waitUntil([&] { return runEnded(); }, "the demonstration's start"));
    spinFor(100);
    EXPECT_EQ((std::lock_guard<std::mutex>(mutex), queried), c.queried);
    EXPECT_EQ(installs, c.installs);
    EXPECT_EQ(payloads(installService, "remove"), c.removes);
    EXPECT_EQ(LogCapture::contains("'endInstall'") || LogCapture::contains(R"("endInstall")"),
              c.endInstall);
    bool serviceData =
        std::find(installs.begin(), installs.end(), "com.velto.vyx") != installs.end();
    EXPECT_EQ(fileExists(ROLE_DIR_PRIVATE ROLE_FILE_NAME), serviceData);
}

const std::string FROM = "processEndPackageInfo: Called with failType ";

// A current device, failed queries, refused, failed or unreported installs: the daemon's whole
// provisioning runs on the simulator pin those.
// clang-format off
const WalkCase WALK_CASES[] = {
    {"TwoInstallsTheSecondAskedWhileTheFirstRuns", "INSTALL=a;b\n", {{"b", "0.9"}},
     {{"a", "1.0"}, {"b", "1.0"}},
     {listStatus({{{"a", "ipk download current", "50"}}, {{"b", "ipk download current", "20"}}}),
      listStatus({{{"a", "installed", ""}}, {{"b", "installed", ""}}})},
     {"a@0", "b@1", "com.velto.app.vyx@2", "com.velto.vyx.v001@2"}, {"a", "b"}, {},
     FROM + "0 from installStatusCB", true},
    {"AFailedInstallIsNoEnd", "INSTALL=a\n", {}, {{"a", "1.0"}}, {listStatus({{{"a", "failed", "0"}}})},
     {"a@0", "com.velto.app.vyx@1", "com.velto.vyx.v001@1"}, {"a"}, {}, FROM + "0 from installStatusCB", false},
    {"ServiceDataBlankDeletesAndAnEmptyStatusList", "INSTALL=com.velto.vyx\nPURGELIST= p1 ; ;p2\n",
     {}, {{"com.velto.vyx", "1.3"}}, {R"({"status":{"apps":[]}})"},
     {"com.velto.vyx@0", "com.velto.app.vyx@1", "com.velto.vyx.v001@1"}, {"com.velto.vyx"},
     {R"({"id":"p1"})", R"({"id":"p2"})"}, FROM + "0 from installStatusCB", false},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Cases, Walk, testing::ValuesIn(WALK_CASES), rowName);

} // namespace
