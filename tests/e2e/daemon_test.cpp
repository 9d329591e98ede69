// The real vyxstaged with the simulated platform: what a device would see it do.
#include <gtest/gtest.h>

#include "support/e2e_harness.h"

namespace {

class DaemonTest : public E2eTest {
  protected:
    // fresh-device, with the demonstration application installed when asked
    std::string scenario(bool demoInstalled, const std::string &base = "fresh-device.json",
                         const std::string &preferences = "") {
        std::string installed =
            "\"installed\":[{\"id\":\"com.velto.app.phone\",\"version\":\"3.0.1\"},"
            "{\"id\":\"com.velto.app.firstuse\",\"version\":\"1.4.0\"}" +
            std::string(
                demoInstalled
                    ? ",{\"id\":\"com.velto.app.vyx\",\"version\":\"2.1.0\",\"userInstalled\":true}"
                    : "") +
            "]";
        return writeScenario("device.json", "{\"extends\":\"" + shippedScenario(base) +
                                                "\",\"device\":{" + installed + preferences + "}}");
    }
    ::testing::AssertionResult launched(const std::string &id, const std::string &action,
                                        const std::string &ok, int timeoutMs = 10000) {
        return waitForRecord(
            "launch",
            [&](const SimRecord &r) {
                return r.text("id") == id && r.text("action") == action && r.text("ok") == ok;
            },
            id + " launched with " + action, timeoutMs);
    }
};

TEST_F(DaemonTest, SwitchingTheDemoOnStoresItAndLaunchesTheDemonstration) {
    ASSERT_TRUE(startSim(shippedScenario("fresh-device.json")));
    ASSERT_TRUE(startDaemon());
    EXPECT_EQ(call("velto://com.velto.vyxService/setDemoState", "{\"state\":true}"),
              "{\"returnValue\":true}");
    ASSERT_TRUE(waitForRecord(
        "preference",
        [](const SimRecord &r) {
            return r.text("key") == "vyxStageRunning" && r.text("value") == "true";
        },
        "the demo preference switched on"));
    // Nothing is installed on a fresh device, so the platform refuses the launch.
    EXPECT_TRUE(launched("com.velto.app.vyx", "initialize", "false"));
    EXPECT_EQ(call("velto://com.velto.vyxService/demoState"),
              "{\"returnValue\":\"true\",\"state\":\"on\"}");
    EXPECT_NE(sim("preferences").find("\"vyxStageRunning\":true"), std::string::npos);
}

TEST_F(DaemonTest, DisplayTurningOffStartsTheVideo) {
    ASSERT_TRUE(startSim(scenario(true)));
    ASSERT_TRUE(startDaemon());
    EXPECT_EQ(call("velto://com.velto.vyxService/setDemoState", "{\"state\":true}"),
              "{\"returnValue\":true}");
    ASSERT_TRUE(launched("com.velto.app.vyx", "initialize", "true"));
    ASSERT_TRUE(waitForRecord(
        "activity", [](const SimRecord &r) { return r.text("action") == "created"; },
        "the display activity"));

    sim("displayEvent", "{\"event\":\"displayOff\",\"state\":\"off\",\"dockMode\":false}");
    ASSERT_TRUE(launched("com.velto.app.vyx", "power", "true"));
    for (const SimRecord &launch : records("launch")) {
        if (launch.text("action") == "power") {
            EXPECT_EQ(launch.text("params"), "{\"action\":\"power\",\"playVideo\":true}");
        }
    }
    // re-armed after the call, so the next change is heard too
    EXPECT_TRUE(waitForRecord(
        "activity",
        [](const SimRecord &r) {
            return r.text("action") == "created" && r.text("activityId") != "1";
        },
        "the activity created again"));
}

// Without the preference service the demo state never becomes known: a "demoState" call is held
// and answered "unknown" when the daemon ends after its idle time.
TEST_F(DaemonTest, HeldDemoStateIsAnsweredUnknownWhenPreferencesNeverAnswer) {
    ASSERT_TRUE(startSim(
        writeScenario("no-preferences.json",
                      "{\"extends\":\"" + shippedScenario("fresh-device.json") +
                          "\",\"faults\":{\"notRunning\":[\"com.velto.systemservice\"]}}")));
    ASSERT_TRUE(startDaemon(false));
    EXPECT_EQ(call("velto://com.velto.vyxService/demoState", "{}", 15000),
              "{\"returnValue\":\"true\",\"state\":\"unknown\"}");
    EXPECT_EQ(waitForDaemonExit(3000), 0);
    EXPECT_TRUE(records("launch").empty());
}

} // namespace
