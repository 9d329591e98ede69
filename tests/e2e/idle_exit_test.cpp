// Held calls of the real daemon on the simulated platform, answered when it ends for being idle.
// (The details "downloadAppInfo" gathers: scenario SysInfo and every provisioning run's install
// requests; switching the demo mode: scenario DemoSwitch and every provisioning run's trigger.)
#include <algorithm>

#include "support/e2e_harness.h"

namespace {

const char DEMO_STATE[] = "velto://com.velto.vyxService/demoState";

using AccountServiceAbsent = E2eTest;
using ServiceCore = E2eTest;

// Without the account service the missing items stay outstanding: the request is held past the
// short idle time, then answered with the error when the five-minute idle time it armed ends.
TEST_F(AccountServiceAbsent, RequestIsHeldThenAnsweredWithTheErrorAtIdleExit) {
    ASSERT_TRUE(startSim(shippedScenario("service-not-running.json")));
    ASSERT_TRUE(startDaemon());
    BusClient app;
    ASSERT_TRUE(app.send("velto://com.velto.vyxService/downloadAppInfo", "{}"));
    spinFor(12000);
    EXPECT_TRUE(app.replies().empty()) << app.replies()[0];
    EXPECT_EQ(waitForDaemonExit(0), -1);
    EXPECT_EQ(std::ranges::count_if(records("call"),
                                    [](auto &r) { return r.text("method") == "getDeviceId"; }),
              1)
        << dump();
    ASSERT_TRUE(waitUntil([&] { return !app.replies().empty(); }, "the idle exit", 320000));
    EXPECT_EQ(app.replies()[0],
              R"({"returnValue":false, "errorCode":-1, )"
              R"("errorText":"Request to download information ended [exitTimerCB]"})");
    EXPECT_EQ(waitForDaemonExit(5000), 0);
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
