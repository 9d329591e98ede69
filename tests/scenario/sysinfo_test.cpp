// The five system-information items and "downloadAppInfo": the whole daemon in-process, the
// platform services played by fakes, the demonstration application played by a bus client.
#include <signal.h>
#include <syslog.h>

#include <algorithm>
#include <memory>

#include "bus_test.h"
#include "fake_service.h"
#include "service/demo_state.h"
#include "service/service.h"
#include "sysinfo/download_info.h"
#include "sysinfo/sysinfo.h"

namespace {

const char DOWNLOAD_APP_INFO[] = "velto://com.velto.vyxService/downloadAppInfo";
const char ACCOUNT_OK[] = R"({"returnValue":true,"token":"tok-1","accountAlias":"ann@example.com",)"
                          R"("accountState":"active","uniqueId":"u-42"})";
const char CARRIER_OK[] =
    R"({"returnValue":true,"values":[{"com.velto.properties.DMCARRIER":"VZW"},)"
    R"({"com.velto.properties.machineName":"tarsk"}]})";
const char DEVICE_OK[] = R"({"returnValue":true,"deviceId":"dev-7"})";
const char LOCALE_OK[] =
    R"({"returnValue":true,"locale":{"languageCode":"de","countryCode":"DE"}})";
const char SERVER_OK[] = R"({"returnValue":true,"serverUrl":"https://bazaro.example.com/ws"})";
const char DETAILS_OK[] =
    R"({"returnValue":true, "details":{"token":"tok-1", "carrier":"VZW", "deviceId":"dev-7", )"
    R"("locale":"de_DE", "serverUrl":"https://bazaro.example.com/ws", "alias":"ann@example.com", )"
    R"("uniqueId":"u-42"}})";
const char DEMO_ON[] = R"({"returnValue":true,"vyxStageRunning":true,"vyxStageDetails":{}})";
const char FAILED[] = R"({"returnValue":false,"errorCode":7,"errorText":"nothing here"})";

std::string negative(const std::string &text) {
    return R"({"returnValue":false, "errorCode":-1, "errorText":")" + text + "\"}";
}

// Parameter tables name their rows; the row's name is the test's name.
const auto caseName = [](const auto &info) { return std::string(info.param.name); };
template <class Case>
requires requires(Case c) {
    c.name;
}
void PrintTo(const Case &c, std::ostream *os) {
    *os << c.name;
}

class SysInfo : public BusTest {
  protected:
    void SetUp() override {
        BusTest::SetUp();
        accounts.reply("/", "getAccountToken", ACCOUNT_OK).reply("/", "getServerUrl", SERVER_OK);
        properties.reply("/systemProperties", "getSomeSysPropertiesObj", CARRIER_OK);
        deviceProfile.reply("/", "getDeviceId", DEVICE_OK);
        // One service holds both the demo preference and the locale.
        systemService
            .handle("/", "getPreferences",
                    [this](BusHandle *h, BusMessage *m) {
                        bool locale =
                            std::string(KSMessageGetPayload(m)).find("locale") != std::string::npos;
                        KSMessageReply(h, m, locale ? localeReply.c_str() : demoReply.c_str(),
                                       nullptr);
                    })
            .reply("/", "setPreferences", R"({"returnValue":true})");
        appManager.reply("/", "listPackages", R"({"returnValue":true,"apps":[]})")
            .reply("/", "launch", R"({"returnValue":true})");
    }
    void startDaemon() {
        for (FakeService *fake : fakes())
            ASSERT_TRUE(fake->start());
        ASSERT_TRUE(serviceStart());
        ASSERT_TRUE(waitUntil([] { return isDemoStatusLoaded() == 1; }, "demo preference"));
    }
    // The call stays unanswered until the test answers it; teardown drops what is left.
    struct Held {
        BusHandle *handle = nullptr;
        BusMessage *message = nullptr;
        void answer(const char *payload) {
            KSMessageReply(handle, message, payload, nullptr);
            KSMessageUnref(message);
            message = nullptr;
        }
    };
    std::shared_ptr<Held> hold(FakeService &fake, const char *category, const char *method) {
        auto held = std::make_shared<Held>();
        m_held.push_back(held);
        fake.handle(category, method, [held](BusHandle *h, BusMessage *m) {
            KSMessageRef(m);
            held->handle = h;
            held->message = m;
        });
        return held;
    }
    void TearDown() override {
        serviceFinish();
        for (auto &held : m_held)
            KSMessageUnref(held->message);
        for (FakeService *fake : fakes())
            fake->stop();
        BusTest::TearDown();
    }
    std::vector<FakeService *> fakes() {
        return {&accounts, &properties, &deviceProfile, &systemService, &appManager};
    }
    static bool logged(const char *fragment) { return LogCapture::contains(fragment); }

    FakeService accounts{"com.velto.accountservices"};
    FakeService properties{"com.velto.preferences"};
    FakeService deviceProfile{"com.velto.deviceprofile"};
    FakeService systemService{"com.velto.systemservice"};
    FakeService appManager{"com.velto.applicationManager"};
    std::vector<std::shared_ptr<Held>> m_held;
    std::string localeReply = LOCALE_OK;
    std::string demoReply = DEMO_ON;
};

TEST_F(SysInfo, OneRequestGathersAllFiveItemsAndLaterRequestsAreAnsweredAtOnce) {
    startDaemon();
    FakeService::all().clear();
    BusClient app;
    EXPECT_EQ(app.call(DOWNLOAD_APP_INFO, "{}"), DETAILS_OK);
    // Each service hears on its own connection, so only the set of calls is comparable.
    std::vector<std::string> uris = FakeService::allUris();
    std::sort(uris.begin(), uris.end());
    EXPECT_EQ(uris, (std::vector<std::string>{
                        "velto://com.velto.accountservices/getAccountToken",
                        "velto://com.velto.accountservices/getServerUrl",
                        "velto://com.velto.applicationManager/listPackages",
                        "velto://com.velto.deviceprofile/getDeviceId",
                        "velto://com.velto.preferences/systemProperties/getSomeSysPropertiesObj",
                        "velto://com.velto.systemservice/getPreferences"}));
    EXPECT_EQ(
        properties.lastPayload("getSomeSysPropertiesObj"),
        R"([{"key":"com.velto.properties.DMCARRIER"},{"key":"com.velto.properties.machineName"}])");
    EXPECT_EQ(systemService.lastPayload("getPreferences"), R"({"keys":["locale"]})");
    EXPECT_TRUE(validAccountTokens());
    EXPECT_STREQ(getAccountToken(2), "active");
    EXPECT_STREQ(getAccountToken(4), "");
    EXPECT_EQ(getExitTimer()->interval, 300000u);

    // Everything present: answered from memory, only the listing is refreshed.
    EXPECT_EQ(app.call(DOWNLOAD_APP_INFO, "[]"), DETAILS_OK);
    EXPECT_TRUE(requestSystemInfo());
    ASSERT_TRUE(waitUntil([&] { return appManager.count("listPackages") == 2; }, "second listing"));
    EXPECT_EQ(FakeService::all().size(), 7u);
}

TEST_F(SysInfo, RequestingTwiceBeforeAnyReplyAsksEachServiceOnce) {
    hold(accounts, "/", "getAccountToken");
    hold(accounts, "/", "getServerUrl");
    hold(properties, "/systemProperties", "getSomeSysPropertiesObj");
    hold(deviceProfile, "/", "getDeviceId");
    startDaemon();
    hold(systemService, "/", "getPreferences"); // the locale, after the demo preference
    EXPECT_TRUE(requestSystemInfo());
    EXPECT_TRUE(requestSystemInfo());
    ASSERT_TRUE(waitUntil([&] { return appManager.count("listPackages") == 2; }, "two listings"));
    spinFor(50);
    EXPECT_EQ(accounts.count("getAccountToken"), 1);
    EXPECT_EQ(accounts.count("getServerUrl"), 1);
    EXPECT_EQ(properties.count("getSomeSysPropertiesObj"), 1);
    EXPECT_EQ(deviceProfile.count("getDeviceId"), 1);
    EXPECT_EQ(systemService.count("getPreferences"), 2); // the demo preference, then the locale
    EXPECT_TRUE(isSystemInfoRequestInProcess("test"));
    EXPECT_TRUE(LogCapture::has(
        LOG_DEBUG, "isSystemInfoRequestInProcess called by test: SysInfo Status: AT:0, CR:0, "
                   "DV:0, LC:0, SU:0"));
}

TEST_F(SysInfo, SecondRequestWhileOneIsHeldIsRefusedAndTheFirstStillAnswered) {
    auto token = hold(accounts, "/", "getAccountToken");
    startDaemon();
    BusClient first, second;
    ASSERT_TRUE(first.send(DOWNLOAD_APP_INFO, "{}"));
    ASSERT_TRUE(waitUntil([&] { return token->message != nullptr; }, "account token query"));
    EXPECT_EQ(second.call(DOWNLOAD_APP_INFO, "{}"), negative("Already in process"));
    EXPECT_TRUE(LogCapture::has(LOG_DEBUG, "downloadSystemInfo: About to send response for "
                                           "'downloadApplInfo' method\": Already in process"));
    EXPECT_TRUE(first.replies().empty());
    token->answer(ACCOUNT_OK);
    ASSERT_TRUE(waitUntil([&] { return !first.replies().empty(); }, "the held reply"));
    EXPECT_EQ(first.replies()[0], DETAILS_OK);
    EXPECT_EQ(accounts.count("getAccountToken"), 1);
}

TEST_F(SysInfo, PayloadsThatAreNoRequestHoldNothing) {
    startDaemon();
    BusClient refused, dropped, app;
    EXPECT_EQ(refused.call(DOWNLOAD_APP_INFO, "abc"), negative("Invalid format"));
    // The bus's own not-running report is dropped: no reply at all, not even an error.
    ASSERT_TRUE(dropped.send(DOWNLOAD_APP_INFO,
                             R"({"returnValue":false,"errorCode":-1,"errorText":"x is not )"
                             R"(running.","serviceName":"x"})"));
    ASSERT_TRUE(waitUntil([] { return logged("downloadSystemInfo: Ignoring response"); },
                          "the report to be dropped"));
    EXPECT_EQ(accounts.count("getAccountToken"), 0);
    EXPECT_EQ(app.call(DOWNLOAD_APP_INFO, "{}"), DETAILS_OK);
    spinFor(50);
    EXPECT_TRUE(dropped.replies().empty()) << dropped.replies()[0];
}

// A failed item does not conclude the gathering while another query is still out.
struct FailureCase {
    const char *name;
    bool accountFails; // else the device id fails
};

class SysInfoFailure : public SysInfo, public testing::WithParamInterface<FailureCase> {};

TEST_P(SysInfoFailure, ErrorReplyWaitsForTheLastOutstandingQuery) {
    const FailureCase &c = GetParam();
    if (c.accountFails)
        accounts.reply("/", "getAccountToken", FAILED);
    else
        deviceProfile.reply("/", "getDeviceId", FAILED);
    auto server = hold(accounts, "/", "getServerUrl");
    startDaemon();
    BusClient app;
    ASSERT_TRUE(app.send(DOWNLOAD_APP_INFO, "{}"));
    ASSERT_TRUE(waitUntil(
        [&] {
            return server->message && logged("localeCB: payload") &&
                   logged("carrierCB: carrier:") && logged("not found: ERROR");
        },
        "every reply but the server address"));
    spinFor(50);
    EXPECT_TRUE(app.replies().empty());
    EXPECT_FALSE(validAccountTokens());
    server->answer(SERVER_OK);
    ASSERT_TRUE(waitUntil([&] { return !app.replies().empty(); }, "the error reply"));
    EXPECT_EQ(app.replies()[0], negative("Request to download information ended [serverUrlCB]"));
    EXPECT_FALSE(validAccountTokens());
    for (unsigned slot = 0; c.accountFails && slot < 4; slot++)
        EXPECT_STREQ(getAccountToken(slot), "");
}

INSTANTIATE_TEST_SUITE_P(Items, SysInfoFailure,
                         testing::Values(FailureCase{"AccountToken", true},
                                         FailureCase{"DeviceId", false}),
                         caseName);

struct CarrierCase {
    const char *name;
    const char *values; // the "values" member, or null for none
    const char *carrier;
    int hardwareType;
    const char *video;
};

class CarrierWalk : public SysInfo, public testing::WithParamInterface<CarrierCase> {};

TEST_P(CarrierWalk, CarrierAndHardwareTypeComeFromTheValues) {
    const CarrierCase &c = GetParam();
    std::string reply = R"({"returnValue":true)";
    if (c.values)
        reply += std::string(R"(,"values":)") + c.values;
    properties.reply("/systemProperties", "getSomeSysPropertiesObj", reply + "}");
    startDaemon();
    char video[99] = "unchanged";
    getVyxVideoName(video);
    EXPECT_STREQ(video, "unchanged");
    EXPECT_TRUE(LogCapture::has(
        LOG_ERR, "getVyxVideoName: Can't figure video name because hardware type is undefined"));
    requestSystemInfo();
    ASSERT_TRUE(waitUntil([] { return logged("carrierCB: carrier: "); }, "carrier reply"));
    EXPECT_STREQ(getCarrierId(), c.carrier);
    EXPECT_EQ(getHardwareType(), c.hardwareType);
    EXPECT_TRUE(
        LogCapture::has(LOG_DEBUG, "carrierCB: carrier: " + std::string(c.carrier) +
                                       ", hardware type: " + std::to_string(c.hardwareType)));
    getVyxVideoName(video);
    EXPECT_STREQ(video, c.video);
}

#define CARRIER "\"com.velto.properties.DMCARRIER\""
#define MACHINE "\"com.velto.properties.machineName\""

INSTANTIATE_TEST_SUITE_P(
    Replies, CarrierWalk,
    testing::Values(
        CarrierCase{"BothInFirstElementStopTheWalk",
                    "[{" CARRIER ":\"VZW\"," MACHINE ":\"fenlo\"},{" CARRIER ":\"TMO\"," MACHINE
                    ":\"ombrel\"}]",
                    "VZW", 1, "com.velto.vyx.v002"},
        CarrierCase{"OnlyMachineName", "[{" MACHINE ":\"tarsk\"}]", "ROW", 2, "com.velto.vyx.v001"},
        CarrierCase{"LaterElementOverwrites",
                    "[{" CARRIER ":\"VZW\"},{" CARRIER ":\"ATT\"},{" MACHINE ":\"ombrel\"}]", "ATT",
                    3, ""},
        CarrierCase{"MachineNameIsCaseSensitive", "[{" CARRIER ":\"VZW\"," MACHINE ":\"Fenlo\"}]",
                    "VZW", 0, ""},
        CarrierCase{"ValueWithoutTextIsMissing", "[{" CARRIER ":null," MACHINE ":true}]", "ROW", 0,
                    ""},
        CarrierCase{"EmptyArray", "[]", "ROW", 0, ""},
        CarrierCase{"NoValues", nullptr, "ROW", 0, ""}),
    caseName);

struct EndingCase {
    const char *name;
    void (*end)();
    const char *reply;
};

class HeldRequestEnding : public SysInfo, public testing::WithParamInterface<EndingCase> {};

TEST_P(HeldRequestEnding, ProcessEndAnswersTheHeldRequest) {
    hold(accounts, "/", "getAccountToken");
    startDaemon();
    BusClient app;
    ASSERT_TRUE(app.send(DOWNLOAD_APP_INFO, "{}"));
    ASSERT_TRUE(waitUntil([] { return logged("Begin processing for 'downloadApplInfo'"); },
                          "the request to be held"));
    ASSERT_TRUE(waitUntil([] { return logged("serverUrlCB: payload"); }, "the other items"));
    GetParam().end();
    ASSERT_TRUE(waitUntil([&] { return !app.replies().empty(); }, "the reply"));
    EXPECT_EQ(app.replies()[0], negative(GetParam().reply));
    EXPECT_EQ(FakeHost::exits, 1);
    EXPECT_EQ(FakeHost::lastExitStatus, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Paths, HeldRequestEnding,
    testing::Values(EndingCase{"ExitTimer", [] { exitTimerCB(nullptr); },
                               "Request to download information ended [exitTimerCB]"},
                    EndingCase{"Signal", [] { sigproc(SIGINT); }, "Timeout in service"}),
    caseName);

// One item's reply, and what the getter then holds.
struct ItemCase {
    const char *name;
    SystemInfoItem item;
    std::string reply;
    std::string expected;
};

class ItemReply : public SysInfo, public testing::WithParamInterface<ItemCase> {};

TEST_P(ItemReply, StoredTextFollowsTheReply) {
    static const char *const handlers[] = {"accountTokenCB", "carrierCB", "deviceIdCB", "localeCB",
                                           "serverUrlCB"};
    const ItemCase &c = GetParam();
    if (c.item == SI_LOCALE) {
        localeReply = c.reply;
    } else {
        const struct {
            FakeService *fake;
            const char *category, *method;
        } services[] = {{&accounts, "/", "getAccountToken"},
                        {&properties, "/systemProperties", "getSomeSysPropertiesObj"},
                        {&deviceProfile, "/", "getDeviceId"},
                        {},
                        {&accounts, "/", "getServerUrl"}};
        services[c.item].fake->reply(services[c.item].category, services[c.item].method, c.reply);
    }
    startDaemon();
    requestSystemInfo();
    std::string done = std::string(" called by ") + handlers[c.item] + ": SysInfo Status";
    ASSERT_TRUE(waitUntil([&] { return logged(done.c_str()); }, done));
    const char *stored[] = {getAccountToken(0), getCarrierId(), getDeviceId(), getLocale(),
                            getServerUrl()};
    EXPECT_EQ(stored[c.item], c.expected);
}

std::string text(size_t length, char c) {
    return std::string(length, c);
}

INSTANTIATE_TEST_SUITE_P(
    Replies, ItemReply,
    testing::Values(
        ItemCase{"LocaleComposed", SI_LOCALE, LOCALE_OK, "de_DE"},
        ItemCase{"LocaleMissing", SI_LOCALE, R"({"returnValue":true})", "en_us"},
        ItemCase{"LocaleCutAt100", SI_LOCALE,
                 R"({"locale":{"languageCode":")" + text(80, 'l') + R"(","countryCode":")" +
                     text(40, 'C') + "\"}}",
                 text(80, 'l') + "_" + text(19, 'C')},
        ItemCase{"CarrierCutAt99", SI_CARRIER,
                 R"({"values":[{"com.velto.properties.DMCARRIER":")" + text(150, 'c') + "\"}]}",
                 text(99, 'c')},
        ItemCase{"TokenCutAt100", SI_ACCOUNT_TOKEN,
                 R"({"token":")" + text(150, 't') + R"(","accountAlias":"a","accountState":"s"})",
                 text(100, 't')},
        ItemCase{"TokenWithoutStateFails", SI_ACCOUNT_TOKEN,
                 R"({"token":"t","accountAlias":"a","accountState":null})", ""},
        ItemCase{"DeviceIdCutAt100", SI_DEVICE_ID, R"({"deviceId":")" + text(150, 'd') + "\"}",
                 text(100, 'd')},
        ItemCase{"DeviceIdMissingFails", SI_DEVICE_ID, R"({"returnValue":true})", ""},
        ItemCase{"ServerUrlCutAt256", SI_SERVER_URL, R"({"serverUrl":")" + text(300, 's') + "\"}",
                 text(256, 's')}),
    caseName);

struct ParkedDownloadCase {
    const char *name;
    const char *accountReply;
    int priority;
    const char *logLine;
    int listings; // the gathering's own, plus one when the download starts
};

class ParkedDownload : public SysInfo, public testing::WithParamInterface<ParkedDownloadCase> {};

TEST_P(ParkedDownload, DemoOffStopsTheDownloadOnlyAfterASuccessfulGathering) {
    const ParkedDownloadCase &c = GetParam();
    accounts.reply("/", "getAccountToken", c.accountReply);
    demoReply = R"({"returnValue":true,"vyxStageRunning":false})";
    startDaemon();
    ASSERT_FALSE(isDemoRunning());
    setRunLocalFileDownload(true);
    requestSystemInfo();
    ASSERT_TRUE(waitUntil([&] { return LogCapture::has(c.priority, c.logLine); }, c.logLine));
    ASSERT_TRUE(
        waitUntil([&] { return appManager.count("listPackages") == c.listings; }, "listings"));
    spinFor(50);
    EXPECT_EQ(appManager.count("listPackages"), c.listings);
    EXPECT_FALSE(isRunLocalFileDownload());
}

INSTANTIATE_TEST_SUITE_P(
    Outcomes, ParkedDownload,
    testing::Values(ParkedDownloadCase{"Success", ACCOUNT_OK, LOG_ALERT,
                                       "sendSystemInfo: Demo status is OFF, file download stopped",
                                       1},
                    ParkedDownloadCase{"Failure", FAILED, LOG_DEBUG,
                                       "sendDownloadErrorResponse called, starting file download",
                                       2}),
    caseName);

} // namespace
