// The simulator checked on its own: scenarios, the install service, subscriptions, services that
// are not running, the application manager, the store over HTTP and the display activity.
#include <gtest/gtest.h>

#include <curl/curl.h>
#include <glib.h>
#include <glib/gstdio.h>

#include <algorithm>

#include "platform/json.h"
#include "support/e2e_harness.h"

namespace {

std::string tempFile(const std::string &dir, const std::string &name, const std::string &content) {
    std::string path = dir + "/" + name;
    EXPECT_TRUE(g_file_set_contents(path.c_str(), content.data(),
                                    static_cast<gssize>(content.size()), nullptr));
    return path;
}

TEST(VyxsimScenario, MalformedScenarioEndsWithTheReasonAndStatus1) {
    g_autofree char *dir = g_dir_make_tmp("vyxsim-XXXXXX", nullptr);
    ASSERT_NE(dir, nullptr);
    struct Case {
        const char *what;
        std::string text;
        const char *says;
    } cases[] = {
        {"not JSON", "{\"device\":", "not a JSON document"},
        {"empty file", "", "not a JSON document"},
        {"not UTF-8", "{\"name\":\"\xff\"}", "not UTF-8"},
        {"not an object", "[1]", "scenario: expected an object"},
        {"unknown member", "{\"devices\":{}}", "devices: unknown member"},
        {"wrong type", "{\"device\":{\"installed\":[{\"id\":\"a\",\"version\":3}]}}",
         "device.installed[0].version: expected a string, found a number"},
        {"package twice", "{\"device\":{\"installed\":[{\"id\":\"a\"},{\"id\":\"a\"}]}}",
         "listed twice"},
        {"unusable id", "{\"store\":{\"catalogue\":[{\"id\":\"a b\",\"version\":\"1\"}]}}",
         "not a usable package id"},
        {"size out of range",
         "{\"store\":{\"catalogue\":[{\"id\":\"a\",\"version\":\"1\",\"size\":-4}]}}",
         "store.catalogue[0].size: -4 is out of range"},
        {"fraction", "{\"store\":{\"port\":80.5}}", "expected a whole number"},
        {"port out of range", "{\"store\":{\"port\":70000}}", "out of range"},
        {"unknown outcome", "{\"installService\":{\"packages\":{\"a\":{\"outcome\":\"maybe\"}}}}",
         "installService.packages.a.outcome"},
        {"unknown fault", "{\"faults\":{\"store\":\"flaky\"}}", "faults.store"},
        {"path climbs", "{\"files\":{\"/etc/../passwd\":\"x\"}}", "not allowed in a path"},
        {"missing base", "{\"extends\":\"nowhere.json\"}", "extends: nowhere.json"},
        {"extends itself", "{\"extends\":\"case.json\"}", "more than 4 deep"},
        {"nesting beyond the parser's bound", std::string(100000, '['), "not a JSON document"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        std::string path = tempFile(dir, "case.json", c.text);
        for (bool check : {true, false}) {
            std::vector<std::string> args{path};
            if (check)
                args.insert(args.begin(), "--check");
            ToolRun run = runTool("vyxsim", args);
            EXPECT_EQ(run.status, 1) << run.err;
            EXPECT_NE(run.err.find(c.says), std::string::npos) << run.err;
            EXPECT_EQ(run.err.find("Sanitizer"), std::string::npos) << run.err;
        }
    }
    g_unlink((std::string(dir) + "/case.json").c_str());
    g_rmdir(dir);
}

TEST(VyxsimScenario, ShippedScenariosLoad) {
    g_autoptr(GDir) dir = g_dir_open(shippedScenario("").c_str(), 0, nullptr);
    ASSERT_NE(dir, nullptr);
    int count = 0;
    while (const char *name = g_dir_read_name(dir)) {
        if (!g_str_has_suffix(name, ".json"))
            continue;
        ++count;
        ToolRun run = runTool("vyxsim", {"--check", shippedScenario(name)});
        EXPECT_EQ(run.status, 0) << name << ": " << run.err;
    }
    EXPECT_GE(count, 6);
}

class VyxsimTest : public E2eTest {
  protected:
    // fresh-device with quick installs, plus what a test adds
    ::testing::AssertionResult startFresh(const std::string &members = "") {
        std::string json = "{\"extends\":\"" + shippedScenario("fresh-device.json") +
                           "\",\"installService\":{\"durationMs\":600" + members + "}}";
        return startSim(writeScenario("quick.json", json));
    }
    std::string install(const std::string &id, const std::string &version = "0.0.1") {
        // as the daemon writes it: single quotes, values unescaped
        return call("velto://com.velto.appInstallService/install",
                    "{'catalogId':4101,'id':'" + id + "','title':'T','version':'" + version +
                        "','vendor':7,'vendorUrl':'H','iconUrl':'I','ipkUrl':'L','authToken':'"
                        "SIMTOKEN-7f3a9c',"
                        "'deviceId':'VX4D00A1B2C3D4E5'}");
    }
    std::vector<std::string> statesOf(const std::string &id) {
        std::vector<std::string> states;
        for (const SimRecord &r : records("install"))
            if (r.text("id") == id && (states.empty() || states.back() != r.text("state")))
                states.push_back(r.text("state"));
        return states;
    }
};

TEST_F(VyxsimTest, InstallGoesThroughDownloadAndInstallingToInstalledInBothStatusForms) {
    ASSERT_TRUE(startFresh());
    std::string listing = call("velto://com.velto.applicationManager/listPackages");
    EXPECT_NE(
        listing.find("\"icon\":\"\\/usr\\/velto\\/applications\\/com.velto.app.phone\\/icon.png\""),
        std::string::npos)
        << listing;
    EXPECT_EQ(listing.find("com.velto.app.vyx\""), std::string::npos);

    EXPECT_NE(install("com.velto.app.vyx").find("\"returnValue\":true"), std::string::npos);
    std::vector<std::string> listed, single;
    ASSERT_TRUE(waitUntil(
        [&] {
            listed.push_back(call("velto://com.velto.appInstallService/status", "{}"));
            single.push_back(call("velto://com.velto.appInstallService/status",
                                  "{\"id\":\"com.velto.app.vyx\"}"));
            spinFor(40);
            return single.back().find("\"state\":\"installed\"") != std::string::npos;
        },
        "the install to end", 5000));
    EXPECT_NE(listed.front().find("\"status\":{\"apps\":[{\"id\":\"com.velto.app.vyx\""),
              std::string::npos);
    EXPECT_NE(listed.front().find("\"state\":\"ipk download current\""), std::string::npos)
        << listed.front();
    EXPECT_NE(
        single.front().find("\"id\":\"com.velto.app.vyx\",\"ticket\":1,\"details\":{\"state\":"),
        std::string::npos)
        << single.front();
    EXPECT_EQ(statesOf("com.velto.app.vyx"),
              (std::vector<std::string>{"ipk download current", "installing", "installed"}));
    std::vector<int> percents;
    for (const SimRecord &r : records("install"))
        if (r.text("state") == "ipk download current")
            percents.push_back(atoi(r.text("progress").c_str()));
    EXPECT_EQ(percents, (std::vector<int>{0, 20, 40, 60, 80}));

    // listed with the store's version, in the user area, slashes escaped as the platform writes
    // them
    listing = call("velto://com.velto.applicationManager/listPackages");
    EXPECT_NE(
        listing.find("{\"id\":\"com.velto.app.vyx\",\"version\":\"2.1.0\",\"title\":\"Vyx Demo\","
                     "\"userInstalled\":true,\"icon\":\"\\/media\\/cryptofs\\/apps\\/usr\\/velto\\/"
                     "applications\\/com.velto.app.vyx\\/icon.png\"}"),
        std::string::npos)
        << listing;
}

TEST_F(VyxsimTest, InstallOutcomesFollowTheScenario) {
    ASSERT_TRUE(
        startFresh(",\"packages\":{\"com.velto.vyx.v001\":{\"outcome\":\"failed\",\"failAt\":40},"
                   "\"com.velto.vyx\":{\"outcome\":\"canceled\",\"failAt\":100},"
                   "\"com.velto.app.weather\":{\"outcome\":\"refused\"}}"));
    struct Case {
        const char *id;
        bool accepted;
        std::vector<std::string> states;
    } cases[] = {
        {"com.velto.app.notes", true, {"ipk download current", "installing", "installed"}},
        {"com.velto.vyx.v001", true, {"ipk download current", "download failed"}},
        {"com.velto.vyx", true, {"ipk download current", "installing", "install canceled"}},
        {"com.velto.app.weather", false, {"refused"}},
    };
    for (const Case &c : cases)
        EXPECT_EQ(install(c.id).find("\"returnValue\":true") != std::string::npos, c.accepted)
            << c.id;
    for (const Case &c : cases) {
        SCOPED_TRACE(c.id);
        ASSERT_TRUE(waitForRecord(
            "install",
            [&](const SimRecord &r) {
                return r.text("id") == c.id && r.text("state") == c.states.back();
            },
            c.states.back(), 5000));
        EXPECT_EQ(statesOf(c.id), c.states);
    }
    std::string listing = call("velto://com.velto.applicationManager/listPackages");
    EXPECT_NE(listing.find("com.velto.app.notes"), std::string::npos);
    EXPECT_EQ(listing.find("com.velto.vyx"), std::string::npos)
        << "failed installs leave nothing behind";
}

// A poller that only ever asks "{}" in the single form must still hear every outcome once.
TEST_F(VyxsimTest, SingleFormReportsEachOutcomeOnce) {
    ASSERT_TRUE(startFresh(",\"statusForm\":\"single\""));
    install("com.velto.app.notes");
    install("com.velto.app.weather");
    ASSERT_TRUE(waitForRecord(
        "install",
        [](const SimRecord &r) {
            return r.text("id") == "com.velto.app.weather" && r.text("state") == "installed";
        },
        "both installs to end", 5000));
    std::vector<std::string> replies;
    for (int i = 0; i < 3; ++i)
        replies.push_back(call("velto://com.velto.appInstallService/status", "{}"));
    EXPECT_NE(replies[0].find("\"id\":\"com.velto.app.notes\""), std::string::npos) << replies[0];
    EXPECT_NE(replies[1].find("\"id\":\"com.velto.app.weather\""), std::string::npos) << replies[1];
    EXPECT_NE(replies[0].find("\"state\":\"installed\""), std::string::npos);
    EXPECT_NE(replies[1].find("\"state\":\"installed\""), std::string::npos);
}

TEST_F(VyxsimTest, SubscribersHearEveryChangeUntilTheyUnsubscribe) {
    ASSERT_TRUE(startFresh());
    BusClient subscriber;
    ASSERT_TRUE(
        subscriber.send("velto://com.velto.connectionmanager/getstatus", "{\"subscribe\":true}"));
    ASSERT_TRUE(waitUntil([&] { return subscriber.replies().size() == 1; }, "the first status"));
    EXPECT_NE(subscriber.replies()[0].find("\"isInternetConnectionAvailable\":true"),
              std::string::npos);

    std::string down =
        "{\"isInternetConnectionAvailable\":false,\"wifi\":{\"state\":\"disconnected\"},"
        "\"wan\":{\"state\":\"disconnected\",\"network\":\"\"}}";
    EXPECT_EQ(sim("setConnectivity", down), "{\"returnValue\":true,\"notified\":1}");
    ASSERT_TRUE(waitUntil([&] { return subscriber.replies().size() == 2; }, "the update"));
    EXPECT_EQ(subscriber.replies()[1], "{\"returnValue\":true," + down.substr(1));

    BusClient other;
    ASSERT_TRUE(
        other.send("velto://com.velto.connectionmanager/getstatus", "{\"subscribe\":false}"));
    ASSERT_TRUE(waitUntil([&] { return other.replies().size() == 1; }, "a stranger's cancel"));
    ASSERT_TRUE(
        subscriber.send("velto://com.velto.connectionmanager/getstatus", "{\"subscribe\":false}"));
    ASSERT_TRUE(waitUntil([&] { return subscriber.replies().size() == 3; }, "the cancel's reply"));
    EXPECT_EQ(sim("setConnectivity", down), "{\"returnValue\":true,\"notified\":0}");
    spinFor(200);
    EXPECT_EQ(subscriber.replies().size(), 3u);
}

TEST_F(VyxsimTest, ServiceThatIsNotRunningIsAnsweredByTheBusLayer) {
    ASSERT_TRUE(startSim(shippedScenario("service-not-running.json")));
    std::string notRunning =
        "{\"returnValue\":false,\"errorCode\":-1,\"errorText\":\"com.velto.accountservices "
        "is not running.\",\"serviceName\":\"com.velto.accountservices\"}";
    EXPECT_EQ(call("velto://com.velto.accountservices/getAccountToken"), notRunning);

    EXPECT_EQ(sim("setFault", "{\"running\":[\"com.velto.accountservices\"],"
                              "\"notRunning\":[\"com.velto.deviceprofile\"]}"),
              "{\"returnValue\":true}");
    EXPECT_NE(call("velto://com.velto.accountservices/getAccountToken")
                  .find("\"token\":\"SIMTOKEN-7f3a9c\""),
              std::string::npos);
    EXPECT_NE(call("velto://com.velto.deviceprofile/getDeviceId")
                  .find("com.velto.deviceprofile is not running."),
              std::string::npos);
    EXPECT_NE(
        sim("setFault", "{\"notRunning\":[\"com.velto.nothing\"]}").find("not a simulated service"),
        std::string::npos);
}

TEST_F(VyxsimTest, ApplicationManagerLaunchesOnlyInstalledApplications) {
    ASSERT_TRUE(startFresh());
    struct Case {
        const char *payload;
        const char *reply;
    } cases[] = {
        {"{\"id\":\"com.velto.app.vyx\",\"params\":{\"action\":\"initialize\"}}",
         "{\"returnValue\":false,\"errorCode\":-1,\"errorText\":\"Application not found: "
         "com.velto.app.vyx\"}"},
        {"{\"id\":\"com.velto.app.firstuse\",\"params\":{}}",
         "{\"returnValue\":true,\"processId\":\"1001\"}"},
        {"{\"id\":\"com.velto.app.firstuse\",\"params\":{\"a\":1}}",
         "{\"returnValue\":true,\"processId\":\"1001\"}"},
        {"{\"id\":\"com.velto.app.findapps.app\",\"params\":{}}",
         "{\"returnValue\":true,\"processId\":\"1002\"}"},
        {"{\"params\":{}}",
         "{\"returnValue\":false,\"errorCode\":-1,\"errorText\":\"Missing id\"}"},
    };
    for (const Case &c : cases)
        EXPECT_EQ(call("velto://com.velto.applicationManager/launch", c.payload), c.reply)
            << c.payload;
    EXPECT_EQ(
        call("velto://com.velto.applicationManager/running"),
        "{\"returnValue\":true,\"running\":[{\"id\":\"com.velto.app.phone\",\"processid\":\"812\"},"
        "{\"id\":\"com.velto.app.firstuse\",\"processid\":\"1001\"},"
        "{\"id\":\"com.velto.app.findapps.app\",\"processid\":\"1002\"}]}");
    EXPECT_EQ(call("velto://com.velto.applicationManager/close", "{\"processId\":\"812\"}"),
              "{\"returnValue\":true}");
    EXPECT_NE(
        call("velto://com.velto.applicationManager/close", "{\"processId\":\"812\"}").find("false"),
        std::string::npos);

    std::vector<SimRecord> launches = records("launch");
    ASSERT_EQ(launches.size(), 4u); // the call without an id never counted as a launch
    EXPECT_EQ(launches[0].text("ok"), "false");
    EXPECT_EQ(launches[0].text("params"), "{\"action\":\"initialize\"}");
    EXPECT_EQ(launches[2].text("params"), "{\"a\":1}");
}

size_t collect(char *data, size_t size, size_t count, void *out) {
    static_cast<std::string *>(out)->append(data, size * count);
    return size * count;
}

struct HttpReply {
    CURLcode code;
    long status = 0;
    std::string body;
};

HttpReply post(const std::string &url, const std::string &body) {
    HttpReply reply;
    CURL *curl = curl_easy_init();
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.c_str());
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, collect);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply.body);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, 10000L);
    reply.code = curl_easy_perform(curl);
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &reply.status);
    curl_easy_cleanup(curl);
    return reply;
}

TEST_F(VyxsimTest, StoreAnswersBothRequestsOverHttpAndPlaysItsFaults) {
    ASSERT_TRUE(startFresh());
    std::string serverUrl = call("velto://com.velto.accountservices/getServerUrl");
    size_t at = serverUrl.find("http://127.0.0.1:");
    ASSERT_NE(at, std::string::npos) << serverUrl;
    std::string base = serverUrl.substr(at, serverUrl.find('"', at) - at);
    ASSERT_EQ(base.back(), '/');
    auto detail = [&](const std::string &id) {
        return post(base + "appDetail_ext2",
                    "{'InGetAppDetailV2':{'accountTokenInfo':{'token':'T','deviceId':'D',"
                    "'email':'E'},'packageId':'" +
                        id + "','locale':'en_us' } }");
    };
    std::string profileBody =
        "{'InGetUserAppsV2':{'accountTokenInfo':{'token':'T','deviceId':'D','email':'E',"
        "'carrier':'ROW'}, 'locale':'en_us'} }";

    HttpReply known = detail("com.velto.vyx.v001");
    EXPECT_EQ(known.status, 200);
    EXPECT_EQ(known.body.rfind(
                  "{\"OutGetAppDetailV2\":{\"appDetail\":{\"id\":4110,\"publicApplicationId\":"
                  "\"com.velto.vyx.v001\",\"title\":\"Demo Video (tarsk)\",\"version\":\"1.0.2\","
                  "\"appSize\":12582912,",
                  0),
              0u)
        << known.body;
    EXPECT_EQ(detail("com.velto.unknown").body, "{\"JSONException\":{\"message\":\"Application "
                                                "com.velto.unknown not found in catalogue\"}}");
    EXPECT_EQ(post(base + "getUserInstalledApps_ext2", profileBody).body,
              "{\"OutGetUserInstalledAppsV2\":{\"userApps\":[{\"publicApplicationId\":\"com.velto."
              "app.notes\"}]}}");

    struct Case {
        const char *fault;
        CURLcode code;
        long status;
        bool parses;
    } cases[] = {
        {"{\"store\":\"http500\"}", CURLE_OK, 500, false},
        {"{\"store\":\"malformed\"}", CURLE_OK, 200, false},
        {"{\"store\":\"down\"}", CURLE_COULDNT_CONNECT, 0, false},
        {"{\"store\":\"none\"}", CURLE_OK, 200, true},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.fault);
        ASSERT_EQ(sim("setFault", c.fault), "{\"returnValue\":true}");
        HttpReply reply = detail("com.velto.app.vyx");
        EXPECT_EQ(reply.code, c.code);
        EXPECT_EQ(reply.status, c.status);
        EXPECT_EQ(jsonParse(reply.body.c_str()) != nullptr, c.parses) << reply.body;
    }

    ASSERT_EQ(
        sim("setFault",
            "{\"store\":\"slow\",\"storeDelayMs\":700,\"storeMethods\":[\"appDetail_ext2\"]}"),
        "{\"returnValue\":true}");
    gint64 start = g_get_monotonic_time();
    EXPECT_EQ(post(base + "getUserInstalledApps_ext2", profileBody).code, CURLE_OK);
    EXPECT_LT(g_get_monotonic_time() - start, 500000) << "the fault is limited to appDetail_ext2";
    start = g_get_monotonic_time();
    EXPECT_EQ(detail("com.velto.app.vyx").status, 200);
    EXPECT_GE(g_get_monotonic_time() - start, 700000);

    std::vector<SimRecord> calls = records("call");
    auto storeCall = std::find_if(calls.begin(), calls.end(),
                                  [](const SimRecord &r) { return r.text("service") == "store"; });
    ASSERT_NE(storeCall, calls.end());
    EXPECT_EQ(storeCall->text("method"), "appDetail_ext2");
    EXPECT_NE(storeCall->text("payload").find("'packageId':'com.velto.vyx.v001'"),
              std::string::npos);
}

// The activity exactly as the daemon creates it, trailing comma included.
const char *ACTIVITY =
    "{\"activity\":{\"name\": \"com.velto.vyxService-power\",\"description\": \"Activity power "
    "trigger\","
    "\"trigger\": {\"method\": \"velto://com.velto.display/control/status\",\"params\": "
    "{\"subscribe\" : true },"
    "\"where\": {\"prop\" :\"event\",\"op\" :\"!=\",\"val\" :\"request\" }},\"callback\": "
    "{\"method\": "
    "\"velto://com.velto.vyxService/displayChange\", \"params\": "
    "{}},\"type\":{\"foreground\":true}},"
    "\"start\": true,\"replace\": true,}";

TEST_F(VyxsimTest, DisplayActivityFiresOnceForEventsItsWhereClauseLetsThrough) {
    ASSERT_TRUE(startFresh());
    FakeService daemon("com.velto.vyxService");
    daemon.reply("/", "displayChange", "{\"returnValue\":true}");
    ASSERT_TRUE(daemon.start());
    EXPECT_NE(call("velto://com.velto.activitymanager/create", ACTIVITY).find("\"activityId\":1"),
              std::string::npos);
    EXPECT_NE(call("velto://com.velto.activitymanager/create", ACTIVITY).find("\"activityId\":2"),
              std::string::npos);

    sim("displayEvent", "{\"event\":\"request\",\"state\":\"on\"}");
    spinFor(200);
    EXPECT_EQ(daemon.count("displayChange"), 0);

    sim("displayEvent", "{\"event\":\"displayOff\",\"state\":\"off\",\"dockMode\":false}");
    ASSERT_TRUE(waitUntil([&] { return daemon.count("displayChange") == 1; }, "the callback"));
    EXPECT_EQ(
        daemon.lastPayload("displayChange"),
        "{\"$activity\":{\"activityId\":2,\"name\":\"com.velto.vyxService-power\",\"trigger\":"
        "{\"returnValue\":true,\"event\":\"displayOff\",\"state\":\"off\",\"dockMode\":false}}}");

    sim("displayEvent", "{\"event\":\"displayOn\",\"state\":\"on\"}");
    spinFor(200);
    EXPECT_EQ(daemon.count("displayChange"), 1)
        << "replaced once, fired once: the owner re-creates it";
}

} // namespace
