// The real daemon against the simulated platform: the demo mode switched through the command-line
// client, and never known without the preference service. The display's part is pinned in-process
// and by the browser test of the page.
#include "support/e2e_harness.h"

namespace {

const char DEMO_STATE[] = "velto://com.velto.vyxService/demoState";

// A device on which the demonstration application is installed, so launching it works.
std::string deviceWithDemo(bool demoOn) {
    return std::string(R"({"name":"demo-installed","extends":")") +
           shippedScenario("fresh-device.json") +
           R"(","device":{"preferences":{"vyxStageRunning":)" + (demoOn ? "true" : "false") +
           R"(,"vyxStageDetails":{}},)" +
           R"("installed":[{"id":"com.velto.app.vyx","version":"2.1.0","title":"Vyx Demo"},)"
           R"({"id":"com.velto.app.vyxcore","version":"2.1.0","title":"Vyx Core"}]}})";
}

class ServiceCore : public E2eTest {
  protected:
    // Unsettled, the first "demoState" call may be the one that the preference read holds.
    void start(bool demoOn, bool settled = true) {
        ASSERT_TRUE(startSim(writeScenario("demo.json", deviceWithDemo(demoOn))));
        ASSERT_TRUE(startDaemon(settled));
    }
    ::testing::AssertionResult launched(const char *id, const char *action) {
        return waitForRecord(
            "launch",
            [&](const SimRecord &r) { return r.text("id") == id && r.text("action") == action; },
            std::string(id) + " launched with " + action);
    }
    ::testing::AssertionResult preferenceWritten(const char *value) {
        return waitForRecord(
            "preference",
            [&](const SimRecord &r) {
                return r.text("key") == "vyxStageRunning" && r.text("value") == value;
            },
            std::string("the demo preference written ") + value);
    }
};

TEST_F(ServiceCore, DemoSwitchedOnAndOffWithTheClient) {
    start(false);
    ToolRun on =
        runTool("vyxctl", {"velto://com.velto.vyxService/setDemoState", R"({"state":true})"});
    EXPECT_EQ(on.status, 0) << on.err;
    EXPECT_NE(on.out.find(R"({"returnValue":true})"), std::string::npos) << on.out;
    ASSERT_TRUE(preferenceWritten("true"));
    ToolRun state = runTool("vyxctl", {DEMO_STATE, "{}"});
    EXPECT_NE(state.out.find(R"({"returnValue":"true","state":"on"})"), std::string::npos)
        << state.out;

    ToolRun off = runTool("vyxctl", {"velto://com.velto.vyxService/toggleDemo", "{}"});
    EXPECT_EQ(off.status, 0) << off.err;
    ASSERT_TRUE(preferenceWritten("false"));
    EXPECT_TRUE(launched("com.velto.app.vyxcore", "stopVyx"));
    EXPECT_TRUE(launched("com.velto.app.vyx", "exit"));
    EXPECT_EQ(call(DEMO_STATE), R"({"returnValue":"true","state":"off"})");
}

// Without the preference service the demo state never becomes known: a "demoState" call is held
// and answered "unknown" when the daemon ends after its idle time.
TEST_F(ServiceCore, HeldDemoStateIsAnsweredUnknownWhenPreferencesNeverAnswer) {
    ASSERT_TRUE(startSim(writeScenario(
        "no-preferences.json", R"({"extends":")" + shippedScenario("fresh-device.json") +
                                   R"(","faults":{"notRunning":["com.velto.systemservice"]}})")));
    ASSERT_TRUE(startDaemon(false));
    EXPECT_EQ(call(DEMO_STATE, "{}", 15000), R"({"returnValue":"true","state":"unknown"})");
    EXPECT_EQ(waitForDaemonExit(3000), 0);
    EXPECT_NE(daemonLog().find("exitTimerCB: About to send generic response for 'getDemoState' "
                               R"(method": {"returnValue":"true","state":"unknown"})"),
              std::string::npos)
        << daemonLog();
    EXPECT_TRUE(records("launch").empty());
}

} // namespace
