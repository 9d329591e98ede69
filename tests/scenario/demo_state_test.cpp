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
using Requests = std::vector<std::string>; // of the application manager, or preference writes
const Requests NONE;

// The platform asks "demoState" at boot, before the daemon has read its preference; a second
// call meanwhile is answered "unknown" and causes no second read.
TEST_F(CoreScenario, BootCallWaitsForThePreferenceAndTheDemoStartsOnceAccountsAreUp) {
    holdPrefReads = true;
    startDaemon({&accounts});
    ASSERT_TRUE(waitUntil([&] { return held.size() == 1; }, "the preference read"));
    ASSERT_TRUE(client->send(std::string(SERVICE) + "demoState", R"({"onBoot":true})"));
    ASSERT_TRUE(waitUntil(
        [] { return LogCapture::hasText("getDemoState: Demo status unknown, status: 0"); },
        "the boot call to be held"));
    BusClient second;
    EXPECT_EQ(second.call(std::string(SERVICE) + "demoState", "{}"), demoStateReply("unknown"));
    EXPECT_TRUE(client->replies().empty());
    answerHeld(DEMO_ON);
    ASSERT_TRUE(waitUntil([&] { return !client->replies().empty(); }, "the held reply"));
    EXPECT_EQ(client->replies()[0], demoStateReply("on"));
    EXPECT_EQ(systemService.count("getPreferences"), 1);

    // The account service is not up: one probe a second, each with a fresh long exit timer.
    ASSERT_TRUE(waitUntil([] { return FakeHost::sleeps.size() >= 2; }, "two probe retries"));
    guint firstId = getExitTimer()->sourceId;
    size_t retries = FakeHost::sleeps.size();
    ASSERT_TRUE(waitUntil([&] { return FakeHost::sleeps.size() > retries; }, "another retry"));
    EXPECT_EQ(getExitTimer()->interval, 300000u);
    EXPECT_NE(getExitTimer()->sourceId, firstId);
    EXPECT_EQ(appManager.count("running"), 0);

    // Its first expiry only re-arms it.
    exitTimerCB(getExitTimer());
    EXPECT_EQ(FakeHost::exits, 0);
    EXPECT_EQ(getExitTimer()->interval, 300000u);

    ASSERT_TRUE(accounts.start());
    ASSERT_TRUE(waitUntil([&] { return appRequests().size() >= 2; }, "the demonstration launch"));
    EXPECT_EQ(appRequests(), (Requests{"launch " + INITIALIZE, "launch " + CORE_START}));
    EXPECT_EQ(LogCapture::count("accountTokenCBboot: valid response received"), 1);
    for (unsigned seconds : FakeHost::sleeps)
        EXPECT_EQ(seconds, 1u);
}

const char VYX[] = "com.velto.app.vyx";

std::string onWith(const std::string &details) {
    return R"({"returnValue":true,"vyxStageRunning":true,"vyxStageDetails":{)" + details + "}}";
}

struct PrefCase {
    const char *name;
    std::string stored;
    const char *state;     // what "demoState" answers afterwards
    const char *appId;     // getVyxAppName()
    const char *packageId; // getVyxPackageName(), null when it is the application's
    bool rewritten;        // the off preference is written back
    friend void PrintTo(const PrefCase &c, std::ostream *os) { *os << c.name; }
};

class StoredPreference : public CoreScenario, public testing::WithParamInterface<PrefCase> {};

TEST_P(StoredPreference, DecidesTheDemoStateAndTheApplication) {
    const PrefCase &c = GetParam();
    startWithDemo(c.stored.c_str());
    EXPECT_EQ(call("demoState", "{}"), demoStateReply(c.state));
    EXPECT_STREQ(getVyxAppName(), c.appId);
    EXPECT_STREQ(getVyxPackageName(), c.packageId ? c.packageId : c.appId);
    spinFor(100);
    EXPECT_EQ(payloads(systemService, "setPreferences"),
              c.rewritten ? Requests{PREF_OFF_WRITE} : NONE);
    // A demo found on at start is not launched; only its display activity is set up.
    EXPECT_TRUE(appRequests().empty());
    EXPECT_EQ(activities.count("create") > 0, std::string(c.state) == "on");
}

const PrefCase PREF_CASES[] = {
    {"NamedAppWithoutAutoRun", onWith(R"("application":"com.acme.demo","autoRun":false)"), "off",
     "com.acme.demo", nullptr, false},
    {"NamedAppWithAutoRunText", onWith(R"("application":"com.acme.demo.app","autoRun":"True")"),
     "on", "com.acme.demo.app", "com.acme.demo", false},
    {"NoDetails", DEMO_ON, "on", VYX, nullptr, false},
    {"DetailsWithoutApplication", onWith(""), "on", VYX, nullptr, false},
    {"StoredOff", DEMO_OFF, "off", VYX, nullptr, true},
    {"NotJson", "garbage", "off", VYX, nullptr, true},
};

INSTANTIATE_TEST_SUITE_P(Cases, StoredPreference, testing::ValuesIn(PREF_CASES), rowName);

std::string closed(int pid) {
    return R"(close {"processId":")" + std::to_string(pid) + "\"}";
}
const std::string INIT = "launch " + INITIALIZE, START = "launch " + CORE_START;
const std::string STOP = "launch " + CORE_STOP, EXIT = "launch " + DEMO_EXIT;

// Side effects: the roles file copied, the profile list deleted, provisioning started (which
// holds the process with its long exit timer).
enum { ROLES = 1, PROFILE = 2, DOWNLOAD = 4 };

struct SwitchCase {
    const char *name;
    const char *stored; // preference at start
    const char *method;
    const char *payload;
    const char *reply;
    const char *write;                    // the preference write the call causes, or null
    std::vector<std::string> appRequests; // launches and closes that follow
    const char *stateAfter;
    int effects;           // of ROLES, PROFILE and DOWNLOAD
    std::string running{}; // the application manager's list; by default the first use and the
                           // phone application run, and the demonstration when it is on
    friend void PrintTo(const SwitchCase &c, std::ostream *os) { *os << c.name; }
};

class DemoSwitch : public CoreScenario, public testing::WithParamInterface<SwitchCase> {};

TEST_P(DemoSwitch, RepliesWritesThePreferenceAndStartsOrStops) {
    const SwitchCase &c = GetParam();
    writeFile(ROLE_FILE_SOURCE, "{\"role\":{}}");
    writeFile(PROFILE_LIST_FILE, "com.acme.game\n");
    std::vector<std::pair<std::string, int>> apps = {{"com.velto.app.firstuse", 55},
                                                     {"com.velto.app.phone", 300}};
    if (std::string(c.stored) == DEMO_ON)
        apps.insert(apps.begin(), {VYX, 1234});
    running = c.running.empty() ? runningList(apps) : c.running;
    appManager.silent("/", "listPackages"); // the run a switch starts is provisioning's business
    startWithDemo(c.stored);
    spinFor(50);
    size_t writesBefore = systemService.count("setPreferences");

    EXPECT_EQ(call(c.method, c.payload), c.reply);
    ASSERT_TRUE(waitUntil([&] { return appRequests().size() >= c.appRequests.size(); },
                          "the launches and closes"));
    spinFor(150);
    Requests writes = payloads(systemService, "setPreferences");
    EXPECT_EQ(Requests(writes.begin() + static_cast<long>(writesBefore), writes.end()),
              c.write ? Requests{c.write} : NONE);
    Requests requests = appRequests();
    std::erase_if(requests, [](auto &r) { return r.find("popupalert") != std::string::npos; });
    EXPECT_EQ(requests, c.appRequests);
    EXPECT_EQ(call("demoState", "{}"), demoStateReply(c.stateAfter));
    EXPECT_EQ(fileExists(ROLE_COPY), (c.effects & ROLES) != 0);
    EXPECT_EQ(!fileExists(PROFILE_LIST_FILE), (c.effects & PROFILE) != 0);
    EXPECT_EQ(getExitTimer()->interval, c.effects & DOWNLOAD ? 300000u : 10000u);
}

const char APP_WRITE[] =
    R"({"vyxStageRunning":true, "vyxStageDetails":{"application": "com.acme.demo"}})";
const char INVALID[] = R"({"returnValue":false, "errorCode":-1, "errorText":"Invalid parameters"})";
const char NOT_JSON[] =
    R"({"returnValue":false, "errorCode":-1, "errorText":"JSON processing error"})";
const char ON[] = R"({"state":true})";
const char OFF[] = R"({"state":false})";
const char ON_APP[] = R"({"state":true,"application":"com.acme.demo"})";
const char PHONE[] = "com.velto.app.phone";
const char FIRST_USE[] = "com.velto.app.firstuse";
const int START_EFFECTS = ROLES | DOWNLOAD;

// toggleDemo also closes the phone application.
const SwitchCase SWITCH_CASES[] = {
    {"NotJson", DEMO_OFF, "setDemoState", "{state", NOT_JSON, nullptr, NONE, "off", 0},
    {"StateNotBoolean", DEMO_OFF, "setDemoState", R"({"state":"true"})", INVALID, nullptr, NONE,
     "off", 0},
    {"OnWithApplicationWhileOff", DEMO_OFF, "setDemoState", ON_APP, OK, APP_WRITE, NONE, "on", 0},
    {"OnWithApplicationWhileOn", DEMO_ON, "setDemoState", ON_APP, OK, APP_WRITE, NONE, "on", ROLES},
    {"OnWhileOff", DEMO_OFF, "setDemoState", ON, OK, PREF_ON_WRITE,
     Requests{closed(55), INIT, START}, "on", START_EFFECTS},
    {"OffWhileOn", DEMO_ON, "setDemoState", OFF, OK, PREF_OFF_WRITE,
     Requests{closed(1234), closed(55), STOP, EXIT}, "off", PROFILE},
    {"ToggleOffToOn", DEMO_OFF, "toggleDemo", "not read", OK, PREF_ON_WRITE,
     Requests{closed(55), INIT, closed(300), START}, "on", START_EFFECTS},
    // Closes go out demonstration, first use, phone, whatever the list's order.
    {"ToggleOnToOff", DEMO_ON, "toggleDemo", "{}", OK, PREF_OFF_WRITE,
     Requests{closed(12), closed(55), closed(300), STOP, EXIT}, "off", PROFILE,
     runningList({{PHONE, 300}, {FIRST_USE, 55}, {VYX, 12}})},
    {"CoreRunningLaunchesNothing", DEMO_OFF, "setDemoState", ON, OK, PREF_ON_WRITE, NONE, "on",
     START_EFFECTS, runningList({{VYX_CORE_APP_ID, 77}})},
    {"DemoRunningStillClosesThePhone", DEMO_OFF, "toggleDemo", "{}", OK, PREF_ON_WRITE,
     Requests{closed(300)}, "on", START_EFFECTS, runningList({{VYX, 12}, {PHONE, 300}})},
    {"EntryWithoutProcessIdIsNotRunning", DEMO_OFF, "setDemoState", ON, OK, PREF_ON_WRITE,
     Requests{INIT, START}, "on", START_EFFECTS,
     R"({"returnValue":true,"running":[{"id":"com.velto.app.vyx"},{"id":"com.velto.app.vyxcore"}]})"},
    {"FailedRunningQueryDoesNothing", DEMO_OFF, "setDemoState", ON, OK, PREF_ON_WRITE, NONE, "on",
     START_EFFECTS, R"({"returnValue":false,"errorCode":3,"errorText":"busy"})"},
    {"StopWithNothingRunningStillTellsBoth", DEMO_ON, "setDemoState", OFF, OK, PREF_OFF_WRITE,
     Requests{STOP, EXIT}, "off", PROFILE, NOTHING_RUNNING},
    {"LaterEntryWins", DEMO_ON, "setDemoState", OFF, OK, PREF_OFF_WRITE,
     Requests{closed(13), STOP, EXIT}, "off", PROFILE, runningList({{VYX, 12}, {VYX, 13}})},
};

INSTANTIATE_TEST_SUITE_P(Cases, DemoSwitch, testing::ValuesIn(SWITCH_CASES), rowName);

} // namespace
