// The five system-information items and "downloadAppInfo": the whole daemon in-process, the
// platform services played by fakes, the demonstration application played by a bus client.
#include "core_fixture.h"
#include "sysinfo/download_info.h"
#include "sysinfo/sysinfo.h"

namespace {

using core::negative;

const char DOWNLOAD_APP_INFO[] = "velto://com.velto.vyxService/downloadAppInfo";
const char DETAILS_OK[] =
    R"({"returnValue":true, "details":{"token":"tok", "carrier":"VZW", "deviceId":"dev-1", )"
    R"("locale":"en_US", "serverUrl":"https://store.example", "alias":"a@b.c", "uniqueId":"u1"}})";
const char FAILED[] = R"({"returnValue":false,"errorCode":7,"errorText":"nothing here"})";

// Where each item is asked, in SystemInfoItem order.
const struct {
    FakeService PlatformFakes::*fake;
    const char *category, *method;
} QUERIES[SI_COUNT] = {{&PlatformFakes::accounts, "/", "getAccountToken"},
                       {&PlatformFakes::properties, "/systemProperties", "getSomeSysPropertiesObj"},
                       {&PlatformFakes::deviceProfile, "/", "getDeviceId"},
                       {&PlatformFakes::systemService, "/", "getPreferences"},
                       {&PlatformFakes::accounts, "/", "getServerUrl"}};

// Items are set up once the daemon runs: the locale shares its service with the demo preference.
class SysInfo : public CoreScenario {
  protected:
    void SetUp() override {
        CoreScenario::SetUp();
        startWithDemo(core::DEMO_OFF);
    }
    FakeService &service(int item) { return this->*QUERIES[item].fake; }
    void answer(SystemInfoItem item, const std::string &reply) {
        service(item).reply(QUERIES[item].category, QUERIES[item].method, reply);
    }
    void hold(SystemInfoItem item) {
        CoreScenario::hold(service(item), QUERIES[item].category, QUERIES[item].method);
    }
    static bool logged(const char *fragment) { return LogCapture::contains(fragment); }
};

TEST_F(SysInfo, OneRequestGathersAllFiveItemsAndLaterRequestsAreAnsweredAtOnce) {
    // The stored demo preference is rewritten at start; only what the request causes counts.
    ASSERT_TRUE(waitUntil([&] { return systemService.count("setPreferences"); }, "pref write"));
    FakeService::all().clear();
    EXPECT_EQ(call("downloadAppInfo", "abc"), negative("Invalid format"));
    EXPECT_EQ(call("downloadAppInfo", "{}"), DETAILS_OK);
    // One query an item (two of them to the account service) and the package listing; none for
    // the payload that is no request.
    EXPECT_EQ(FakeService::all().size(), 6u);
    EXPECT_EQ(
        properties.lastPayload("getSomeSysPropertiesObj"),
        R"([{"key":"com.velto.properties.DMCARRIER"},{"key":"com.velto.properties.machineName"}])");
    EXPECT_EQ(systemService.lastPayload("getPreferences"), R"({"keys":["locale"]})");
    EXPECT_STREQ(getAccountToken(2), "active");
    EXPECT_EQ(getExitTimer()->interval, 300000u);

    // Everything present: answered from memory, only the listing is refreshed.
    EXPECT_EQ(call("downloadAppInfo", "[]"), DETAILS_OK);
    EXPECT_TRUE(requestSystemInfo());
    ASSERT_TRUE(waitUntil([&] { return appManager.count("listPackages") == 2; }, "second listing"));
    EXPECT_EQ(FakeService::all().size(), 7u);
}

TEST_F(SysInfo, SecondRequestWhileOneIsHeldIsRefusedAndTheFirstStillAnswered) {
    hold(SI_ACCOUNT_TOKEN);
    BusClient first;
    ASSERT_TRUE(first.send(DOWNLOAD_APP_INFO, "{}"));
    ASSERT_TRUE(waitUntil([&] { return held.size() == 1; }, "account token query"));
    EXPECT_EQ(call("downloadAppInfo", "{}"), negative("Already in process"));
    EXPECT_TRUE(first.replies().empty());
    answerHeld(R"({"token":"tok","accountAlias":"a@b.c","accountState":"s","uniqueId":"u1"})");
    ASSERT_TRUE(waitUntil([&] { return !first.replies().empty(); }, "the held reply"));
    EXPECT_EQ(first.replies()[0], DETAILS_OK);
    EXPECT_EQ(accounts.count("getAccountToken"), 1);
}

// A failed item does not conclude the gathering while another query is still out.
TEST_F(SysInfo, ErrorReplyWaitsForTheLastOutstandingQuery) {
    answer(SI_ACCOUNT_TOKEN, FAILED);
    hold(SI_SERVER_URL);
    BusClient app;
    ASSERT_TRUE(app.send(DOWNLOAD_APP_INFO, "{}"));
    ASSERT_TRUE(waitUntil(
        [&] {
            return held.size() == 1 && logged("localeCB: payload") &&
                   logged("carrierCB: carrier:") && logged("not found: ERROR");
        },
        "every reply but the server address"));
    spinFor(50);
    EXPECT_TRUE(app.replies().empty());
    answerHeld(R"({"serverUrl":"https://store.example"})");
    ASSERT_TRUE(waitUntil([&] { return !app.replies().empty(); }, "the error reply"));
    EXPECT_EQ(app.replies()[0], negative("Request to download information ended [serverUrlCB]"));
    EXPECT_FALSE(validAccountTokens());
}

// One item's reply, and the text then stored for it.
struct ItemCase {
    const char *name;
    SystemInfoItem item;
    std::string reply;
    std::string expected;
    int hardwareType = 0; // carrier rows only: the machine name read along with the carrier
    const char *video = "";
};

std::string values(const std::string &array) {
    return R"({"returnValue":true,"values":)" + array + "}";
}

class ItemReply : public SysInfo, public testing::WithParamInterface<ItemCase> {};

TEST_P(ItemReply, StoredTextFollowsTheReply) {
    const ItemCase &c = GetParam();
    answer(c.item, c.reply);
    ASSERT_TRUE(requestSystemInfo());
    ASSERT_TRUE(waitUntil([] { return !isSystemInfoRequestInProcess("test"); }, "every reply"));
    const char *stored[] = {getAccountToken(0), getCarrierId(), getDeviceId(), getLocale(),
                            getServerUrl()};
    EXPECT_EQ(stored[c.item], c.expected);
    if (c.item == SI_CARRIER) {
        EXPECT_EQ(getHardwareType(), c.hardwareType);
        char video[99] = "";
        getVyxVideoName(video);
        EXPECT_STREQ(video, c.video);
    }
}

#define CARRIER "\"com.velto.properties.DMCARRIER\""
#define MACHINE "\"com.velto.properties.machineName\""

const std::string T150(150, 't');
// clang-format off
const ItemCase ITEM_CASES[] = {
    {"LocaleMissing", SI_LOCALE, R"({"returnValue":true})", "en_us"},
    {"TokenCutAt100", SI_ACCOUNT_TOKEN, R"({"token":")" + T150 + R"(","accountAlias":"a","accountState":"s"})",
     T150.substr(0, 100)},
    {"TokenWithoutStateFails", SI_ACCOUNT_TOKEN, R"({"token":"t","accountAlias":"a","accountState":null})", ""},
    {"ServerUrlCutAt256", SI_SERVER_URL, R"({"serverUrl":")" + std::string(300, 's') + "\"}", std::string(256, 's')},
    // The walk stops once both are found; a later element overwrites until then.
    {"BothInFirstElementStopTheWalk", SI_CARRIER,
     values("[{" CARRIER ":\"VZW\"," MACHINE ":\"fenlo\"},{" CARRIER ":\"TMO\"," MACHINE ":\"ombrel\"}]"),
     "VZW", 1, "com.velto.vyx.v002"},
    {"OnlyMachineName", SI_CARRIER, values("[{" MACHINE ":\"tarsk\"}]"), "ROW", 2, "com.velto.vyx.v001"},
    {"LaterElementOverwrites", SI_CARRIER,
     values("[{" CARRIER ":\"VZW\"},{" CARRIER ":\"ATT\"},{" MACHINE ":\"ombrel\"}]"), "ATT", 3},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Replies, ItemReply, testing::ValuesIn(ITEM_CASES), core::rowName);

} // namespace
