// The simulator on its own, so a failing daemon test points at the daemon, not at what it plays.
#include <gtest/gtest.h>

#include <curl/curl.h>
#include <glib.h>

#include "platform/json.h"
#include "support/e2e_harness.h"

namespace {

// Shows the whole text when the part is missing from it.
::testing::AssertionResult has(const std::string &text, const std::string &part) {
    if (text.find(part) != std::string::npos)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "no " << part << " in " << text;
}

class VyxsimTest : public E2eTest {
  protected:
    // fresh-device with installs quick enough for a test, plus what a test adds
    ::testing::AssertionResult startFresh(const std::string &members = "") {
        return startSim(writeScenario(
            "quick.json", R"({"extends":")" + shippedScenario("fresh-device.json") +
                              R"(","installService":{"durationMs":600)" + members + "}}"));
    }
    std::string status(const std::string &payload) {
        return call("velto://com.velto.appInstallService/status", payload);
    }
};

TEST_F(VyxsimTest, ShippedScenariosLoadAndMalformedOnesEndWithTheReasonAndStatus1) {
    g_autoptr(GDir) shipped = g_dir_open(shippedScenario("").c_str(), 0, nullptr);
    ASSERT_NE(shipped, nullptr);
    while (const char *name = g_dir_read_name(shipped))
        EXPECT_TRUE(!g_str_has_suffix(name, ".json") ||
                    runTool("vyxsim", {"--check", shippedScenario(name)}).status == 0)
            << name;

    const std::pair<std::string, const char *> cases[] = {
        {std::string(100000, '['), "not a JSON document"}, // deeper than the parser allows
        {"{\"name\":\"\xff\"}", "not UTF-8"},
        {"[1]", "scenario: expected an object"},
        {R"({"devices":{}})", "devices: unknown member"},
        {R"({"device":{"installed":[{"id":"a","version":3}]}})", "[0].version: expected a string"},
        {R"({"device":{"installed":[{"id":"a"},{"id":"a"}]}})", "listed twice"},
        {R"({"store":{"catalogue":[{"id":"a b","version":"1"}]}})", "not a usable package id"},
        {R"({"store":{"catalogue":[{"id":"a","version":"1","size":-4}]}})",
         "store.catalogue[0].size: -4 is out of range"},
        {R"({"store":{"port":80.5}})", "expected a whole number"},
        {R"({"installService":{"packages":{"a":{"outcome":"maybe"}}}})", "packages.a.outcome"},
        {R"({"files":{"/etc/../passwd":"x"}})", "not allowed in a path"},
        {R"({"extends":"nowhere.json"})", "extends: nowhere.json"},
        {R"({"extends":"case.json"})", "more than 4 deep"},
    };
    for (const auto &[text, says] : cases) {
        ToolRun run = runTool("vyxsim", {"--check", writeScenario("case.json", text)});
        EXPECT_EQ(run.status, 1) << run.err; // an exit, not a signal: no crash on any input
        EXPECT_TRUE(has(run.err, says));
    }
}

TEST_F(VyxsimTest, InstallsReachTheirScenarioOutcomeSeenThroughBothStatusForms) {
    ASSERT_TRUE(startFresh(R"(,"statusForm":"single","packages":{
        "com.velto.vyx.v001":{"outcome":"failed","failAt":40},
        "com.velto.vyx":{"outcome":"canceled","failAt":100},
        "com.velto.app.weather":{"outcome":"refused"}})"));
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {"com.velto.app.vyx", {"ipk download current", "installing", "installed"}},
        {"com.velto.vyx.v001", {"ipk download current", "download failed"}},
        {"com.velto.vyx", {"ipk download current", "installing", "install canceled"}},
        {"com.velto.app.weather", {"refused"}},
    };
    for (const auto &[id, states] : cases) // single-quoted, as the daemon writes it
        EXPECT_EQ(bool(has(call("velto://com.velto.appInstallService/install",
                                "{'catalogId':4101,'id':'" + id + "','version':'0.0.1'}"),
                           R"("returnValue":true)")),
                  states.size() > 1);
    std::string listed = status(R"({"form":"list"})");
    EXPECT_TRUE(has(listed, R"("status":{"apps":[{"id":"com.velto.app.vyx","ticket":1,)"
                            R"("details":{"state":"ipk download current")"));
    for (const auto &[id, states] : cases) {
        std::vector<std::string> seen;
        EXPECT_TRUE(waitUntil(
            [&] {
                seen.clear();
                for (const SimRecord &r : records("install"))
                    if (r.text("id") == id && (seen.empty() || seen.back() != r.text("state")))
                        seen.push_back(r.text("state"));
                return seen == states;
            },
            id + " to end", 5000))
            << ::testing::PrintToString(seen);
    }
    EXPECT_TRUE(has(status(R"({"id":"com.velto.app.vyx"})"),
                    R"("id":"com.velto.app.vyx","ticket":1,"details":{"state":"installed")"));
    // a poller that only asks "{}" of the single form hears every outcome once, in order
    for (size_t i = 0; i < 3; ++i)
        EXPECT_TRUE(has(status("{}"), R"("id":")" + cases[i].first + '"'));

    // the store's version, user area, slashes escaped as the platform does; failures leave nothing
    std::string listing = call("velto://com.velto.applicationManager/listPackages");
    EXPECT_TRUE(has(listing, R"({"id":"com.velto.app.vyx","version":"2.1.0","title":"Vyx Demo",)"
                             R"("userInstalled":true,"icon":"\/media\/cryptofs\/apps\/usr\/velto\/)"
                             R"(applications\/com.velto.app.vyx\/icon.png"})"));
    EXPECT_EQ(listing.find("com.velto.vyx"), std::string::npos) << listing;
}

TEST_F(VyxsimTest, SubscribersHearEveryChangeUntilTheyThemselvesUnsubscribe) {
    ASSERT_TRUE(startFresh());
    const std::string uri = "velto://com.velto.connectionmanager/getstatus";
    BusClient subscriber, stranger;
    ASSERT_TRUE(subscriber.send(uri, R"({"subscribe":true})"));
    ASSERT_TRUE(waitUntil([&] { return subscriber.replies().size() == 1; }, "the first status"));
    // someone else's cancel must not end this subscription
    ASSERT_TRUE(stranger.send(uri, R"({"subscribe":false})"));
    ASSERT_TRUE(waitUntil([&] { return stranger.replies().size() == 1; }, "a stranger's cancel"));

    std::string down = R"({"isInternetConnectionAvailable":false,"wifi":{"state":"disconnected"},)"
                       R"("wan":{"state":"disconnected","network":""}})";
    EXPECT_EQ(sim("setConnectivity", down), R"({"returnValue":true,"notified":1})");
    ASSERT_TRUE(waitUntil([&] { return subscriber.replies().size() == 2; }, "the update"));
    EXPECT_EQ(subscriber.replies()[1], R"({"returnValue":true,)" + down.substr(1));

    ASSERT_TRUE(subscriber.send(uri, R"({"subscribe":false})"));
    ASSERT_TRUE(waitUntil([&] { return subscriber.replies().size() == 3; }, "the cancel's reply"));
    EXPECT_EQ(sim("setConnectivity", down), R"({"returnValue":true,"notified":0})");
}

TEST_F(VyxsimTest, ServiceThatIsNotRunningIsAnsweredByTheBusLayerUntilItRuns) {
    ASSERT_TRUE(startSim(shippedScenario("service-not-running.json")));
    EXPECT_EQ(call("velto://com.velto.accountservices/getAccountToken"),
              R"({"returnValue":false,"errorCode":-1,"errorText":"com.velto.accountservices )"
              R"(is not running.","serviceName":"com.velto.accountservices"})");
    EXPECT_EQ(sim("setFault", R"({"running":["com.velto.accountservices"],)"
                              R"("notRunning":["com.velto.deviceprofile"]})"),
              R"({"returnValue":true})");
    EXPECT_TRUE(has(call("velto://com.velto.accountservices/getAccountToken"), "SIMTOKEN-7f3a9c"));
    EXPECT_TRUE(has(call("velto://com.velto.deviceprofile/getDeviceId"), "is not running."));
}

// The HTTP status (0 when nothing answered) and the body.
std::pair<long, std::string> post(const std::string &url, const std::string &body) {
    std::string out;
    long status = 0;
    CURL *curl = curl_easy_init();
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.c_str());
    curl_write_callback collect = [](char *data, size_t size, size_t count, void *to) {
        static_cast<std::string *>(to)->append(data, size * count);
        return size * count;
    };
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, collect);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &out);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, 10000L);
    curl_easy_perform(curl);
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    curl_easy_cleanup(curl);
    return {status, out};
}

TEST_F(VyxsimTest, StoreAnswersBothRequestsOverHttpAndPlaysItsFaults) {
    ASSERT_TRUE(startFresh());
    std::string serverUrl = call("velto://com.velto.accountservices/getServerUrl");
    size_t at = serverUrl.find("http://127.0.0.1:");
    ASSERT_NE(at, std::string::npos) << serverUrl;
    std::string base = serverUrl.substr(at, serverUrl.find('"', at) - at);
    std::string account = "{'accountTokenInfo':{'token':'T','deviceId':'D','email':'E'";
    auto detail = [&](const std::string &id) {
        return post(base + "appDetail_ext2", "{'InGetAppDetailV2':" + account + "},'packageId':'" +
                                                 id + "','locale':'en_us' } }");
    };
    auto userApps = [&] {
        return post(base + "getUserInstalledApps_ext2",
                    "{'InGetUserAppsV2':" + account + ",'carrier':'ROW'}, 'locale':'en_us'} }");
    };

    EXPECT_TRUE(has(detail("com.velto.vyx.v001").second,
                    R"({"OutGetAppDetailV2":{"appDetail":{"id":4110,)"
                    R"("publicApplicationId":"com.velto.vyx.v001",)"));
    EXPECT_EQ(detail("com.velto.unknown").second,
              R"({"JSONException":{"message":"Application com.velto.unknown not found in )"
              R"(catalogue"}})");
    EXPECT_EQ(userApps().second, R"({"OutGetUserInstalledAppsV2":{"userApps":[)"
                                 R"({"publicApplicationId":"com.velto.app.notes"}]}})");

    const std::tuple<const char *, long, bool, gint64> cases[] = {
        {R"({"store":"http500"})", 500, false, 0},
        {R"({"store":"malformed"})", 200, false, 0},
        {R"({"store":"down"})", 0, false, 0},
        {R"({"store":"slow","storeDelayMs":700,"storeMethods":["appDetail_ext2"]})", 200, true,
         700000},
        {R"({"store":"none"})", 200, true, 0},
    };
    for (const auto &[fault, status, parses, atLeastUs] : cases) {
        SCOPED_TRACE(fault);
        ASSERT_EQ(sim("setFault", fault), R"({"returnValue":true})");
        gint64 start = g_get_monotonic_time();
        auto [gotStatus, body] = detail("com.velto.app.vyx");
        EXPECT_GE(g_get_monotonic_time() - start, atLeastUs);
        EXPECT_EQ(std::pair(gotStatus, bool(jsonParse(body.c_str()))), std::pair(status, parses))
            << body;
        start = g_get_monotonic_time(); // a slowed method leaves the other one alone
        EXPECT_EQ(userApps().first, status);
        EXPECT_LT(g_get_monotonic_time() - start, 500000);
    }
}

} // namespace
