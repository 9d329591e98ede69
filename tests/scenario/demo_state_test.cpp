// The demo mode as other applications and the platform see it: the boot-time request, the
// stored preference, and the methods that switch the demo on and off.
#include "core_fixture.h"

#include "common/files.h"
#include "service/demo_state.h"
#include "store/profile.h"

using namespace core;

namespace {

const char PREF_OFF_WRITE[] = R"({"vyxStageRunning":false, "vyxStageDetails":{}})";
const char PREF_ON_WRITE[] = R"({"vyxStageRunning":true, "vyxStageDetails":{}})";
const char ROLE_COPY[] = ROLE_DIR_PRIVATE ROLE_FILE_NAME;

class DemoBoot : public CoreScenario {
  protected:
    // The platform asks "demoState" at boot, before the daemon has read its preference.
    void bootCallHeld() {
        holdPrefReads = true;
        startDaemon({&accounts});
        ASSERT_TRUE(waitUntil([&] { return heldPrefs.size() == 1; }, "the preference read"));
        ASSERT_TRUE(client->send(std::string(SERVICE) + "demoState", R"({"onBoot":true})"));
        ASSERT_TRUE(waitUntil(
            [] { return LogCapture::hasText("getDemoState: Demo status unknown, status: 0"); },
            "the boot call to be held"));
        EXPECT_TRUE(client->replies().empty());
    }
};

TEST_F(DemoBoot, DemoOnWaitsForTheAccountServiceThenLaunchesTheDemonstration) {
    bootCallHeld();
    answerHeldPrefs(DEMO_ON);
    ASSERT_TRUE(waitUntil([&] { return !client->replies().empty(); }, "the held reply"));
    EXPECT_EQ(client->replies()[0], demoStateReply("on"));
    EXPECT_TRUE(LogCapture::has(LOG_DEBUG,
                                "determineKovaDemoPrefCB: Boot-time startup of VYX, "
                                "wait for required system components to come online..."));

    // The account service is not up: one probe a second, each with a fresh long exit timer.
    ASSERT_TRUE(waitUntil([] { return FakeHost::sleeps.size() >= 2; }, "two probe retries"));
    guint firstId = getExitTimer()->sourceId;
    size_t retries = FakeHost::sleeps.size();
    ASSERT_TRUE(waitUntil([&] { return FakeHost::sleeps.size() > retries; }, "another retry"));
    EXPECT_EQ(getExitTimer()->interval, 300000u);
    EXPECT_NE(getExitTimer()->sourceId, firstId);
    EXPECT_EQ(appManager.count("running"), 0);

    // Calls during the wait do not shorten it, and its first expiry only re-arms it.
    EXPECT_EQ(call("demoState", "{}"), demoStateReply("on"));
    EXPECT_TRUE(LogCapture::has(
        LOG_DEBUG, "startExitTimer: Short timeout for 10000 msec ignored as long timeout running"));
    exitTimerCB(getExitTimer());
    EXPECT_EQ(FakeHost::exits, 0);
    EXPECT_EQ(getExitTimer()->interval, 300000u);

    ASSERT_TRUE(accounts.start());
    ASSERT_TRUE(waitUntil([&] { return appRequests().size() >= 2; }, "the demonstration launch"));
    EXPECT_EQ(appRequests(),
              (std::vector<std::string>{"launch " + INITIALIZE, "launch " + CORE_START}));
    EXPECT_EQ(LogCapture::count("accountTokenCBboot: valid response received"), 1);
    for (unsigned seconds : FakeHost::sleeps)
        EXPECT_EQ(seconds, 1u);
    EXPECT_GE(activities.count("create"), 1);
}

TEST_F(DemoBoot, DemoOffClosesWhatRunsOfTheDemonstration) {
    running = runningList({{"com.velto.app.vyx", 1234}, {"com.velto.app.firstuse", 55}});
    bootCallHeld();
    answerHeldPrefs(DEMO_OFF);
    ASSERT_TRUE(waitUntil([&] { return !client->replies().empty(); }, "the held reply"));
    EXPECT_EQ(client->replies()[0], demoStateReply("off"));
    ASSERT_TRUE(waitUntil([&] { return appRequests().size() >= 4; }, "the stop"));
    EXPECT_EQ(appRequests(),
              (std::vector<std::string>{"close " + closeOf(1234), "close " + closeOf(55),
                                        "launch " + CORE_STOP, "launch " + DEMO_EXIT}));
    EXPECT_EQ(payloads(systemService, "setPreferences"), std::vector<std::string>{PREF_OFF_WRITE});
    EXPECT_TRUE(FakeHost::sleeps.empty());
}

// A boot call that comes after the preference is known is answered at once and acts without
// waiting for the account service.
class DemoBootLate : public CoreScenario, public testing::WithParamInterface<bool> {};

TEST_P(DemoBootLate, AnswersAtOnceAndStartsOrStops) {
    bool on = GetParam();
    startWithDemo(on ? DEMO_ON : DEMO_OFF);
    EXPECT_EQ(call("demoState", R"({"onBoot":true})"), demoStateReply(on ? "on" : "off"));
    const std::vector<std::string> expected =
        on ? std::vector<std::string>{"launch " + INITIALIZE, "launch " + CORE_START}
           : std::vector<std::string>{"launch " + CORE_STOP, "launch " + DEMO_EXIT};
    ASSERT_TRUE(waitUntil([&] { return appRequests().size() >= expected.size(); }, "the launches"));
    EXPECT_EQ(appRequests(), expected);
    EXPECT_TRUE(FakeHost::sleeps.empty());
    EXPECT_FALSE(LogCapture::contains("Boot-time startup of VYX"));

    // Later calls without "onBoot" only answer.
    EXPECT_EQ(call("demoState", "{}"), demoStateReply(on ? "on" : "off"));
    spinFor(100);
    EXPECT_EQ(appRequests().size(), expected.size());
}

INSTANTIATE_TEST_SUITE_P(OnAndOff, DemoBootLate, testing::Bool());

TEST_F(DemoBoot, SecondCallWhileTheFirstIsHeldIsAnsweredUnknown) {
    holdPrefReads = true;
    startDaemon();
    ASSERT_TRUE(waitUntil([&] { return heldPrefs.size() == 1; }, "the preference read"));
    ASSERT_TRUE(client->send(std::string(SERVICE) + "demoState", "{}"));
    ASSERT_TRUE(waitUntil([] { return LogCapture::contains("Demo status unknown"); }, "the hold"));
    BusClient second;
    EXPECT_EQ(second.call(std::string(SERVICE) + "demoState", "{}"), demoStateReply("unknown"));
    EXPECT_TRUE(LogCapture::has(LOG_DEBUG, "getDemoState: Handle not-NULL, request in process: 0"));
    EXPECT_TRUE(client->replies().empty());

    answerHeldPrefs(R"({"returnValue":true,"vyxStageRunning":true})");
    ASSERT_TRUE(waitUntil([&] { return !client->replies().empty(); }, "the held reply"));
    EXPECT_EQ(client->replies()[0], demoStateReply("on"));
    EXPECT_EQ(heldPrefs.size(), 0u); // one read for both calls
    EXPECT_EQ(systemService.count("getPreferences"), 1);
}

// ---------------------------------------------------------------------------------------------
// The stored preference

struct PrefCase {
    const char *name;
    const char *stored;
    const char *state;     // what "demoState" answers afterwards
    const char *appId;     // getVyxAppName()
    const char *packageId; // getVyxPackageName()
    bool rewritten;        // the off preference is written back
    const char *logLine;   // a line that tells why
};

void PrintTo(const PrefCase &c, std::ostream *os) {
    *os << c.name;
}

class StoredPreference : public CoreScenario, public testing::WithParamInterface<PrefCase> {};

TEST_P(StoredPreference, DecidesTheDemoStateAndTheApplication) {
    const PrefCase &c = GetParam();
    startWithDemo(c.stored);
    EXPECT_EQ(call("demoState", "{}"), demoStateReply(c.state));
    EXPECT_STREQ(getVyxAppName(), c.appId);
    EXPECT_STREQ(getVyxPackageName(), c.packageId);
    spinFor(100);
    EXPECT_EQ(payloads(systemService, "setPreferences"),
              c.rewritten ? std::vector<std::string>{PREF_OFF_WRITE} : std::vector<std::string>{});
    EXPECT_TRUE(LogCapture::hasText(c.logLine)) << LogCapture::dump();
    // A demo found on at start is not launched; only its display activity is set up.
    EXPECT_TRUE(appRequests().empty());
    EXPECT_EQ(activities.count("create") > 0, std::string(c.state) == "on");
}

INSTANTIATE_TEST_SUITE_P(
    Cases, StoredPreference,
    testing::Values(
        PrefCase{
            "NamedAppWithoutAutoRun",
            R"({"returnValue":true,"vyxStageRunning":true,"vyxStageDetails":{"application":"com.acme.demo","autoRun":false}})",
            "off", "com.acme.demo", "com.acme.demo", false,
            "determineKovaDemoPrefCB: vyxStageDetails/application element contains: "
            "com.acme.demo"},
        PrefCase{
            "NamedAppWithAutoRunText",
            R"({"returnValue":true,"vyxStageRunning":true,"vyxStageDetails":{"application":"com.acme.demo.app","autoRun":"True"}})",
            "on", "com.acme.demo.app", "com.acme.demo", false,
            "determineKovaDemoPrefCB: non-boot startup of VYX"},
        PrefCase{"NoDetails", DEMO_ON, "on", "com.velto.app.vyx", "com.velto.app.vyx", false,
                 "determineKovaDemoPrefCB: vyxStageDetails element not found"},
        PrefCase{"DetailsWithoutApplication",
                 R"({"returnValue":true,"vyxStageRunning":true,"vyxStageDetails":{}})", "on",
                 "com.velto.app.vyx", "com.velto.app.vyx", false,
                 "determineKovaDemoPrefCB: vyxStageDetails/application element not found"},
        PrefCase{
            "ApplicationNotAText",
            R"({"returnValue":true,"vyxStageRunning":true,"vyxStageDetails":{"application":7}})",
            "on", "com.velto.app.vyx", "com.velto.app.vyx", false,
            "determineKovaDemoPrefCB: vyxStageDetails/application element invalid"},
        PrefCase{"StoredOff", DEMO_OFF, "off", "com.velto.app.vyx", "com.velto.app.vyx", true,
                 "determineKovaDemoPrefCB: resetting kova preferences"},
        PrefCase{"KeyMissing", R"({"returnValue":true})", "off", "com.velto.app.vyx",
                 "com.velto.app.vyx", true,
                 "determineKovaDemoPrefCB: Failed to find current demo status, default to OFF"},
        PrefCase{"NotJson", "garbage", "off", "com.velto.app.vyx", "com.velto.app.vyx", true,
                 "determineKovaDemoPrefCB: Failed to find current demo status, default to OFF"}),
    [](const testing::TestParamInfo<PrefCase> &info) { return info.param.name; });

// ---------------------------------------------------------------------------------------------
// setDemoState and toggleDemo

struct SwitchCase {
    const char *name;
    const char *stored; // preference at start
    const char *method;
    const char *payload;
    const char *reply;
    std::vector<std::string> writes;      // preference writes caused by the call
    std::vector<std::string> appRequests; // launches and closes that follow
    const char *stateAfter;
    bool rolesCopied;
    bool profileDeleted;
    bool downloadStarted = false; // provisioning holds the process with its long exit timer
};

void PrintTo(const SwitchCase &c, std::ostream *os) {
    *os << c.name;
}

class DemoSwitch : public CoreScenario, public testing::WithParamInterface<SwitchCase> {};

TEST_P(DemoSwitch, RepliesWritesThePreferenceAndStartsOrStops) {
    const SwitchCase &c = GetParam();
    writeFile(ROLE_FILE_SOURCE, "{\"role\":{}}");
    writeFile(PROFILE_LIST_FILE, "com.acme.game\n");
    running = runningList({{"com.velto.app.firstuse", 55}, {"com.velto.app.phone", 300}});
    if (std::string(c.stored) == DEMO_ON)
        running = runningList({{"com.velto.app.vyx", 1234},
                               {"com.velto.app.firstuse", 55},
                               {"com.velto.app.phone", 300}});
    startWithDemo(c.stored);
    spinFor(50);
    size_t writesBefore = systemService.count("setPreferences");

    EXPECT_EQ(call(c.method, c.payload), c.reply);
    ASSERT_TRUE(waitUntil([&] { return appRequests().size() >= c.appRequests.size(); },
                          "the launches and closes"));
    spinFor(150);
    std::vector<std::string> writes = payloads(systemService, "setPreferences");
    writes.erase(writes.begin(), writes.begin() + static_cast<long>(writesBefore));
    EXPECT_EQ(writes, c.writes);
    std::vector<std::string> requests;
    for (const std::string &request : appRequests())
        if (request.find("popupalert") == std::string::npos)
            requests.push_back(request);
    EXPECT_EQ(requests, c.appRequests);
    EXPECT_EQ(call("demoState", "{}"), demoStateReply(c.stateAfter));
    EXPECT_EQ(fileExists(ROLE_COPY), c.rolesCopied);
    EXPECT_EQ(!fileExists(PROFILE_LIST_FILE), c.profileDeleted);
    EXPECT_EQ(getExitTimer()->interval, c.downloadStarted ? 300000u : 10000u);
}

const char APP_WRITE[] =
    R"({"vyxStageRunning":true, "vyxStageDetails":{"application": "com.acme.demo"}})";
const char INVALID[] = R"({"returnValue":false, "errorCode":-1, "errorText":"Invalid parameters"})";

INSTANTIATE_TEST_SUITE_P(
    SetDemoState, DemoSwitch,
    testing::Values(
        SwitchCase{"NotJson",
                   DEMO_OFF,
                   "setDemoState",
                   "{state",
                   R"({"returnValue":false, "errorCode":-1, "errorText":"JSON processing error"})",
                   {},
                   {},
                   "off",
                   false,
                   false},
        SwitchCase{"StateNotBoolean",
                   DEMO_OFF,
                   "setDemoState",
                   R"({"state":"true"})",
                   INVALID,
                   {},
                   {},
                   "off",
                   false,
                   false},
        SwitchCase{"StateMissing",
                   DEMO_ON,
                   "setDemoState",
                   R"({"application":"x"})",
                   INVALID,
                   {},
                   {},
                   "on",
                   false,
                   false},
        SwitchCase{"OnWithApplicationWhileOff",
                   DEMO_OFF,
                   "setDemoState",
                   R"({"state":true,"application":"com.acme.demo"})",
                   OK,
                   {APP_WRITE},
                   {},
                   "on",
                   false,
                   false},
        SwitchCase{"OnWithApplicationWhileOn",
                   DEMO_ON,
                   "setDemoState",
                   R"({"state":true,"application":"com.acme.demo"})",
                   OK,
                   {APP_WRITE},
                   {},
                   "on",
                   true,
                   false},
        SwitchCase{"OnWhileOff",
                   DEMO_OFF,
                   "setDemoState",
                   R"({"state":true})",
                   OK,
                   {PREF_ON_WRITE},
                   {"close " + closeOf(55), "launch " + INITIALIZE, "launch " + CORE_START},
                   "on",
                   true,
                   false,
                   true},
        SwitchCase{"OnWhileOn",
                   DEMO_ON,
                   "setDemoState",
                   R"({"state":true})",
                   OK,
                   {PREF_ON_WRITE},
                   {},
                   "on",
                   true,
                   false},
        SwitchCase{"OffWhileOn",
                   DEMO_ON,
                   "setDemoState",
                   R"({"state":false})",
                   OK,
                   {PREF_OFF_WRITE},
                   {"close " + closeOf(1234), "close " + closeOf(55), "launch " + CORE_STOP,
                    "launch " + DEMO_EXIT},
                   "off",
                   false,
                   true},
        SwitchCase{"OffWhileOff",
                   DEMO_OFF,
                   "setDemoState",
                   R"({"state":false})",
                   OK,
                   {PREF_OFF_WRITE},
                   {},
                   "off",
                   false,
                   false}),
    [](const testing::TestParamInfo<SwitchCase> &info) { return info.param.name; });

// toggleDemo also closes the phone application.
INSTANTIATE_TEST_SUITE_P(
    ToggleDemo, DemoSwitch,
    testing::Values(SwitchCase{"OffToOn",
                               DEMO_OFF,
                               "toggleDemo",
                               "not read",
                               OK,
                               {PREF_ON_WRITE},
                               {"close " + closeOf(55), "launch " + INITIALIZE,
                                "close " + closeOf(300), "launch " + CORE_START},
                               "on",
                               true,
                               false,
                               true},
                    SwitchCase{"OnToOff",
                               DEMO_ON,
                               "toggleDemo",
                               "{}",
                               OK,
                               {PREF_OFF_WRITE},
                               {"close " + closeOf(1234), "close " + closeOf(55),
                                "close " + closeOf(300), "launch " + CORE_STOP,
                                "launch " + DEMO_EXIT},
                               "off",
                               false,
                               true}),
    [](const testing::TestParamInfo<SwitchCase> &info) { return info.param.name; });

} // namespace
