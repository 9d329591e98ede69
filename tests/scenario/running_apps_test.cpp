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
    friend void PrintTo(const RunningCase &c, std::ostream *os) { *os << c.name; }
};

class RunningApps : public CoreScenario, public testing::WithParamInterface<RunningCase> {};

TEST_P(RunningApps, ClosesAndLaunchesByTheRunningList) {
    const RunningCase &c = GetParam();
    startWithDemo(DEMO_OFF);
    spinFor(50);
    running = c.running;
    bool closingPhone = c.request == START_CLOSING_PHONE || c.request == STOP_CLOSING_PHONE;
    if (c.request == START || c.request == START_CLOSING_PHONE)
        startupVYX(closingPhone);
    else
        killVYX(closingPhone);
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

const std::string CORE_STOPPED = "launch " + CORE_STOP, DEMO_EXITED = "launch " + DEMO_EXIT;

// clang-format off
const RunningCase CASES[] = {
    {"CoreRunningLaunchesNothing", START, runningList({{VYX_CORE_APP_ID, 77}}), {},
     "processPIDsCB() #1: VYX Core is running, pid: 77"},
    {"DemoRunningStillClosesThePhone", START_CLOSING_PHONE, runningList({{VYX, 12}, {PHONE, 300}}),
     {"close " + closeOf(300)}, "processPIDsCB() #1: VYX [com.velto.app.vyx] is running, pid: 12"},
    {"EntryWithoutProcessIdIsNotRunning", START,
     R"({"returnValue":true,"running":[{"id":"com.velto.app.vyx"},{"id":"com.velto.app.vyxcore"}]})",
     {"launch " + INITIALIZE, "launch " + CORE_START}, "processPIDsCB() #1: Start VYX video, F-U PID: -1"},
    {"FailedQueryDoesNothing", START, R"({"returnValue":false,"errorCode":3,"errorText":"busy"})", {},
     R"(processPIDsCB #1: fail CB return detected: {"returnValue":false,"errorCode":3,"errorText":"busy"})"},
    {"StopWithNothingRunningStillTellsBoth", STOP, NOTHING_RUNNING, {CORE_STOPPED, DEMO_EXITED},
     "processPIDsCB() #2: VYX [com.velto.app.vyx] PID: -1, F-U PID: -1"},
    {"StopClosesAllThree", STOP_CLOSING_PHONE, runningList({{PHONE, 300}, {FIRST_USE, 55}, {VYX, 12}}),
     {"close " + closeOf(12), "close " + closeOf(55), "close " + closeOf(300), CORE_STOPPED, DEMO_EXITED},
     "processPIDsCB() #3: PhoneApp PID: 300"},
    {"LaterEntryWins", STOP, runningList({{VYX, 12}, {VYX, 13}}), {"close " + closeOf(13), CORE_STOPPED, DEMO_EXITED},
     "getProcessId: Process [com.velto.app.vyx] is found, pId #13"},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Cases, RunningApps, testing::ValuesIn(CASES), rowName);

} // namespace
