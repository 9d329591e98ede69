// The real daemon against the simulated platform: the demo mode switched at boot, through the
// command-line client, and by the display.
#include "support/e2e_harness.h"

namespace {

// A device on which the demonstration application is installed, so launching it works.
std::string deviceWithDemo(bool demoOn) {
    return std::string(R"({"name":"demo-installed","extends":")") +
           shippedScenario("fresh-device.json") +
           R"(","device":{"preferences":{"vyxStageRunning":)" + (demoOn ? "true" : "false") +
           R"(,"vyxStageDetails":{}},)" +
           R"("installed":[{"id":"com.velto.app.vyx","version":"2.1.0","title":"Vyx Demo"},)"
           R"({"id":"com.velto.app.vyxcore","version":"2.1.0","title":"Vyx Core"}]}})";
}

bool isLaunch(const SimRecord &r, const char *id, const char *action) {
    return r.text("id") == id && r.text("action") == action;
}

class ServiceCore : public E2eTest {
  protected:
    // Unsettled, the first "demoState" call may be the one that the preference read holds.
    void start(bool demoOn, bool settled = true) {
        ASSERT_TRUE(startSim(writeScenario("demo.json", deviceWithDemo(demoOn))));
        ASSERT_TRUE(startDaemon(settled));
    }
};

TEST_F(ServiceCore, BootWithTheDemoOnLaunchesTheDemonstration) {
    start(true, false);
    EXPECT_EQ(call("velto://com.velto.vyxService/demoState", R"({"onBoot":true})"),
              R"({"returnValue":"true","state":"on"})");
    ASSERT_TRUE(waitForRecord(
        "launch",
        [](const SimRecord &r) {
            return isLaunch(r, "com.velto.app.vyx", "initialize") && r.text("ok") == "true";
        },
        "the demonstration application started with initialize"));
    EXPECT_TRUE(waitForRecord(
        "launch",
        [](const SimRecord &r) { return isLaunch(r, "com.velto.app.vyxcore", "startVyx"); },
        "the core application told"));
}

TEST_F(ServiceCore, DemoSwitchedOnAndOffWithTheClient) {
    start(false);
    ToolRun on =
        runTool("vyxctl", {"velto://com.velto.vyxService/setDemoState", R"({"state":true})"});
    EXPECT_EQ(on.status, 0) << on.err;
    EXPECT_NE(on.out.find(R"({"returnValue":true})"), std::string::npos) << on.out;
    ASSERT_TRUE(waitForRecord(
        "preference",
        [](const SimRecord &r) {
            return r.text("key") == "vyxStageRunning" && r.text("value") == "true";
        },
        "the demo preference written on"));
    ToolRun state = runTool("vyxctl", {"velto://com.velto.vyxService/demoState", "{}"});
    EXPECT_NE(state.out.find(R"({"returnValue":"true","state":"on"})"), std::string::npos)
        << state.out;

    ToolRun off = runTool("vyxctl", {"velto://com.velto.vyxService/toggleDemo", "{}"});
    EXPECT_EQ(off.status, 0) << off.err;
    ASSERT_TRUE(waitForRecord(
        "preference",
        [](const SimRecord &r) {
            return r.text("key") == "vyxStageRunning" && r.text("value") == "false";
        },
        "the demo preference written off"));
    EXPECT_TRUE(waitForRecord(
        "launch",
        [](const SimRecord &r) { return isLaunch(r, "com.velto.app.vyxcore", "stopVyx"); },
        "the core application stopped"));
    EXPECT_TRUE(waitForRecord(
        "launch", [](const SimRecord &r) { return isLaunch(r, "com.velto.app.vyx", "exit"); },
        "the demonstration told to exit"));
    EXPECT_EQ(call("velto://com.velto.vyxService/demoState"),
              R"({"returnValue":"true","state":"off"})");
}

TEST_F(ServiceCore, DisplayOffWithTheDemoOnPlaysTheVideo) {
    start(true);
    ASSERT_TRUE(waitForRecord(
        "activity", [](const SimRecord &r) { return r.text("action") == "created"; },
        "the display activity"));
    EXPECT_NE(sim("displayEvent", R"({"event":"displayOff","state":"off","dockMode":false})"), "");
    ASSERT_TRUE(waitForRecord(
        "launch",
        [](const SimRecord &r) {
            return isLaunch(r, "com.velto.app.vyx", "power") &&
                   r.text("params").find(R"("playVideo":true)") != std::string::npos;
        },
        "the power action with playVideo"));
    // The activity is set up again for the next change.
    auto created = [&] {
        int n = 0;
        for (const SimRecord &r : records("activity"))
            n += r.text("action") == "created";
        return n;
    };
    EXPECT_TRUE(waitUntil([&] { return created() >= 2; }, "the activity created again"));
}

} // namespace
