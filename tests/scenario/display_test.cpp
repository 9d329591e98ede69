// The display activity and "displayChange": which display events start the demonstration
// video, and when the activity is set up again.
#include "core_fixture.h"

#include "monitors/display.h"
#include "provision/download.h"
#include "service/demo_state.h"

using namespace core;

namespace {

const std::string POWER = launchOf("com.velto.app.vyx", R"("action":"power" )");

std::string trigger(const std::string &members) {
    return R"({"$activity":{"activityId":4,"trigger":{"returnValue":true,)" + members + "}}}";
}

enum Demo { ON, OFF, UNKNOWN_THEN_ON };

struct DisplayCase {
    const char *name;
    Demo demo;
    int presence; // isVyxAppPresent
    std::string payload;
    std::string launch; // the power action launched, or empty
    bool rearmed;
    friend void PrintTo(const DisplayCase &c, std::ostream *os) { *os << c.name; }
};

class DisplayChange : public CoreScenario, public testing::WithParamInterface<DisplayCase> {};

TEST_P(DisplayChange, StartsTheVideoOnlyForARelevantEventWithTheDemoOn) {
    const DisplayCase &c = GetParam();
    if (c.demo == UNKNOWN_THEN_ON) {
        holdPrefReads = true;
        demoPref = DEMO_ON;
        startDaemon();
        ASSERT_TRUE(waitUntil([&] { return held.size() == 1; }, "the first preference read"));
        holdPrefReads = false;
    } else {
        startWithDemo(c.demo == ON ? DEMO_ON : DEMO_OFF);
    }
    spinFor(50);
    setVyxAppPresent(c.presence);
    int created = activities.count("create");

    EXPECT_EQ(call("displayChange", c.payload), OK);
    spinFor(200);
    EXPECT_EQ(launches(R"("action":"power")"),
              !c.launch.empty() ? std::vector<std::string>{c.launch} : std::vector<std::string>{});
    EXPECT_EQ(activities.count("create") > created, c.rearmed);
    EXPECT_EQ(getExitTimer()->interval, 10000u);
}

const DisplayCase CASES[] = {
    {"DisplayOff", ON, 1, trigger(R"("event":"displayOff","state":"off")"), PLAY_VIDEO, true},
    {"StateAloneIsNotEnough", ON, 1, trigger(R"("event":"displayOn","state":"off")"), "", true},
    {"DockedWithAnyState", ON, 1, trigger(R"("event":"displayOn","state":"on","dockMode":true)"),
     PLAY_VIDEO, true},
    {"EventNotATextButDimmed", ON, 1, trigger(R"("event":5,"state":"dimmed")"), PLAY_VIDEO, true},
    {"NothingRecorded", ON, 1, trigger(R"("event":null)"), POWER, true},
    {"PresenceUnknown", ON, -1, trigger(R"("event":"displayInactive")"), PLAY_VIDEO, true},
    {"AppAbsent", ON, 0, trigger(R"("event":"displayOff")"), "", true},
    {"DemoOff", OFF, 1, trigger(R"("event":"displayOff")"), "", false},
    {"DemoUnknownReadsThePreference", UNKNOWN_THEN_ON, 1,
     trigger(R"("event":"displayDimmed","state":"dimmed")"), PLAY_VIDEO, true},
    {"NoEvent", ON, 1, trigger(R"("state":"off")"), "", true},
};

INSTANTIATE_TEST_SUITE_P(Cases, DisplayChange, testing::ValuesIn(CASES), rowName);

} // namespace
