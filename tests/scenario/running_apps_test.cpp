// Starting and stopping the demonstration from the application manager's running list: what is
// closed and what is launched for each list.
#include "core_fixture.h"

#include "service/demo_state.h"
#include "service/running_apps.h"

using namespace core;

namespace {

enum Request { START, START_CLOSING_PHONE, STOP, STOP_CLOSING_PHONE };

struct RunningCase {
    const char *name;
    Request request;
    std::string running; // the application manager's answer
    std::vector<std::string> appRequests;
    const char *logLine;
};

void PrintTo(const RunningCase &c, std::ostream *os) {
    *os << c.name;
}

class RunningApps : public CoreScenario, public testing::WithParamInterface<RunningCase> {};

TEST_P(RunningApps, ClosesAndLaunchesByTheRunningList) {
    const RunningCase &c = GetParam();
    startWithDemo(DEMO_OFF);
    spinFor(50);
    running = c.running;
    switch (c.request) {
    case START:
        startupVYX(false);
        break;
    case START_CLOSING_PHONE:
        startupVYX(true);
        break;
    case STOP:
        killVYX(false);
        break;
    case STOP_CLOSING_PHONE:
        killVYX(true);
        break;
    }
    ASSERT_TRUE(waitUntil([] { return LogCapture::contains("processPIDsCB #"); }, "the decision"));
    ASSERT_TRUE(waitUntil([&] { return appRequests().size() >= c.appRequests.size(); },
                          "the closes and launches"));
    spinFor(100);
    EXPECT_EQ(appRequests(), c.appRequests);
    EXPECT_TRUE(LogCapture::hasText(c.logLine)) << LogCapture::dump();
}

const char VYX[] = "com.velto.app.vyx";
const char FIRST_USE[] = "com.velto.app.firstuse";
const char PHONE[] = "com.velto.app.phone";

INSTANTIATE_TEST_SUITE_P(
    Cases, RunningApps,
    testing::Values(
        RunningCase{"CoreRunningLaunchesNothing",
                    START,
                    runningList({{VYX_CORE_APP_ID, 77}}),
                    {},
                    "processPIDsCB() #1: VYX Core is running, pid: 77"},
        RunningCase{"DemoRunningStillClosesThePhone",
                    START_CLOSING_PHONE,
                    runningList({{VYX, 12}, {PHONE, 300}}),
                    {"close " + closeOf(300)},
                    "processPIDsCB() #1: VYX [com.velto.app.vyx] is running, pid: 12"},
        RunningCase{
            "EntryWithoutProcessIdIsNotRunning",
            START,
            R"({"returnValue":true,"running":[{"id":"com.velto.app.vyx"},{"id":"com.velto.app.vyxcore"}]})",
            {"launch " + INITIALIZE, "launch " + CORE_START},
            "processPIDsCB() #1: Start VYX video, F-U PID: -1"},
        RunningCase{"FailedQueryDoesNothing",
                    START,
                    R"({"returnValue":false,"errorCode":3,"errorText":"busy"})",
                    {},
                    "processPIDsCB #1: fail CB return detected: "
                    R"({"returnValue":false,"errorCode":3,"errorText":"busy"})"},
        RunningCase{"StopWithNothingRunningStillTellsBoth",
                    STOP,
                    NOTHING_RUNNING,
                    {"launch " + CORE_STOP, "launch " + DEMO_EXIT},
                    "processPIDsCB() #2: VYX [com.velto.app.vyx] PID: -1, F-U PID: -1"},
        RunningCase{"StopClosesAllThree",
                    STOP_CLOSING_PHONE,
                    runningList({{PHONE, 300}, {FIRST_USE, 55}, {VYX, 12}}),
                    {"close " + closeOf(12), "close " + closeOf(55), "close " + closeOf(300),
                     "launch " + CORE_STOP, "launch " + DEMO_EXIT},
                    "processPIDsCB() #3: PhoneApp PID: 300"},
        RunningCase{"LaterEntryWins",
                    STOP,
                    runningList({{VYX, 12}, {VYX, 13}}),
                    {"close " + closeOf(13), "launch " + CORE_STOP, "launch " + DEMO_EXIT},
                    "getProcessId: Process [com.velto.app.vyx] is found, pId #13"}),
    [](const testing::TestParamInfo<RunningCase> &info) { return info.param.name; });

} // namespace
