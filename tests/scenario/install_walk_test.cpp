// The install walk and the delete chain against a store on 127.0.0.1 and a fake install service:
// which packages are asked about and in what order, what is installed or removed, and how the
// install phase ends.
#include "provision_fixture.h"

#include <map>

#include "common/files.h"
#include "store/profile.h"
#include "store_server.h"

using namespace core;
using namespace prov;

namespace {

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

struct WalkCase {
    const char *name;
    std::string config;
    std::map<std::string, std::string> offered; // id and the version the store offers
    std::string status;                         // the install service's every status answer
    Lines queried, installs, removes;
    bool endInstall; // the pop-up that says all went in was asked for
    friend void PrintTo(const WalkCase &c, std::ostream *os) { *os << c.name; }
};

class Walk : public ProvisionScenario, public testing::WithParamInterface<WalkCase> {};

// The walk over the configuration's packages; the demonstration and its video are installed.
TEST_P(Walk, QueriesInstallsRemovesAndEnds) {
    const WalkCase &c = GetParam();
    std::map<std::string, std::string> offered = c.offered;
    offered.insert({{"com.velto.app.vyx", "1.0"}, {VIDEO, "1.0"}});
    std::vector<Pkg> installed = {{"com.velto.app.vyx"}, {VIDEO}};
    before = listing(installed);
    for (const auto &[id, version] : offered)
        installed.push_back({id, version});
    after = listing(installed);
    StoreServer store([&](const StoreRequest &request) {
        auto offer = offered.find(textAfter(request.body, "'packageId':'"));
        return StoreReply{200,
                          {offer == offered.end() ? R"({"JSONException":{"message":"unknown"}})"
                                                  : detail(offer->first, offer->second)}};
    });
    accounts.reply("/", "getServerUrl",
                   R"({"returnValue":true,"serverUrl":")" + store.url() + "\"}");
    installService.reply("/", "status", c.status);
    writeFile(ROLE_FILE_SOURCE, "{\"role\":{}}");
    writeFile(PROFILE_LIST_FILE, "com.acme.old"); // the profile is skipped: an empty list
    writeFile(CONFIG, "[IPKG]\nSKIPONRAMP=true\n" + c.config);
    startRun(false);
    const std::string end = "processEndPackageInfo: Called with failType 0 from installStatusCB";
    ASSERT_TRUE(waitUntil([&] { return LogCapture::hasText(end); }, end, 15000))
        << LogCapture::dump();
    ASSERT_TRUE(waitUntil([&] { return runEnded(); }, "the demonstration's start"));
    spinFor(100);
    Lines queried, installs;
    for (const StoreRequest &request : store.requests())
        queried.push_back(textAfter(request.body, "'packageId':'"));
    for (const std::string &payload : payloads(installService, "install"))
        installs.push_back(textAfter(payload, "'id':'"));
    EXPECT_EQ(queried, c.queried);
    EXPECT_EQ(installs, c.installs);
    EXPECT_EQ(payloads(installService, "remove"), c.removes);
    EXPECT_EQ(LogCapture::contains("'endInstall'") || LogCapture::contains(R"("endInstall")"),
              c.endInstall);
    bool serviceData =
        std::find(installs.begin(), installs.end(), "com.velto.vyx") != installs.end();
    EXPECT_EQ(fileExists(ROLE_DIR_PRIVATE ROLE_FILE_NAME), serviceData);
    EXPECT_FALSE(fileExists(PROFILE_LIST_FILE));
}

const char ALL_FAILED[] = R"({"returnValue":true,"status":{"apps":[{"id":"a","details":)"
                          R"({"state":"failed","progress":"0"}}]}})";

// A current device, two installs, failed queries, refused, failed or unreported installs: the
// daemon's whole provisioning runs on the simulator pin those.
// clang-format off
const WalkCase WALK_CASES[] = {
    {"AFailedInstallIsNoEnd", "INSTALL=a\n", {{"a", "1.0"}}, ALL_FAILED,
     {"a", "com.velto.app.vyx", "com.velto.vyx.v001"}, {"a"}, {}, false},
    {"ServiceDataBlankDeletesAndAnEmptyStatusList", "INSTALL=com.velto.vyx\nPURGELIST= p1 ; ;p2\n",
     {{"com.velto.vyx", "1.3"}}, R"({"status":{"apps":[]}})",
     {"com.velto.vyx", "com.velto.app.vyx", "com.velto.vyx.v001"}, {"com.velto.vyx"},
     {R"({"id":"p1"})", R"({"id":"p2"})"}, false},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Cases, Walk, testing::ValuesIn(WALK_CASES), rowName);

} // namespace
