// "downloadAppInfo" against the simulated platform: the real daemon gathers the device's details
// from the services the scenario plays.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "support/e2e_harness.h"

namespace {

const char DOWNLOAD_APP_INFO[] = "velto://com.velto.vyxService/downloadAppInfo";

class SysInfoE2e : public E2eTest {};

TEST_F(SysInfoE2e, DownloadAppInfoAnswersWithTheScenarioDetails) {
    ASSERT_TRUE(startSim(shippedScenario("fresh-device.json")));
    ASSERT_TRUE(startDaemon());
    std::string reply = call(DOWNLOAD_APP_INFO);
    // The server address carries the store's port, which the simulator picks.
    const std::string head = R"({"returnValue":true, "details":{"token":"SIMTOKEN-7f3a9c", )"
                             R"("carrier":"ROW", "deviceId":"VX4D00A1B2C3D4E5", "locale":"en_us", )"
                             R"("serverUrl":"http://127.0.0.1:)";
    const std::string tail = R"(/bazaro/", "alias":"demo@velto.example", "uniqueId":"U-000417"}})";
    EXPECT_EQ(reply.substr(0, head.size()), head) << reply;
    ASSERT_GE(reply.size(), head.size() + tail.size());
    EXPECT_EQ(reply.substr(reply.size() - tail.size()), tail) << reply;
}

class AccountServiceAbsent : public SysInfoE2e {
  protected:
    void SetUp() override {
        SysInfoE2e::SetUp();
        ASSERT_TRUE(startSim(shippedScenario("service-not-running.json")));
        ASSERT_TRUE(startDaemon());
        m_app = std::make_unique<BusClient>();
        ASSERT_TRUE(m_app->send(DOWNLOAD_APP_INFO, "{}"));
    }
    void TearDown() override {
        m_app.reset();
        SysInfoE2e::TearDown();
    }
    std::unique_ptr<BusClient> m_app;
};

// The missing items stay outstanding, so the request is held past the short idle time.
TEST_F(AccountServiceAbsent, RequestIsHeldAndTheDaemonStaysUp) {
    spinFor(12000);
    EXPECT_TRUE(m_app->replies().empty()) << m_app->replies()[0];
    EXPECT_EQ(waitForDaemonExit(0), -1);
    EXPECT_EQ(std::ranges::count_if(records("call"),
                                    [](auto &r) { return r.text("method") == "getDeviceId"; }),
              1)
        << dump();
}

// Waits out the five-minute idle time that a held request arms.
TEST_F(AccountServiceAbsent, RequestIsAnsweredWithTheErrorAtIdleExit) {
    ASSERT_TRUE(waitUntil([&] { return !m_app->replies().empty(); }, "the idle exit", 320000));
    EXPECT_EQ(m_app->replies()[0],
              R"({"returnValue":false, "errorCode":-1, )"
              R"("errorText":"Request to download information ended [exitTimerCB]"})");
    EXPECT_EQ(waitForDaemonExit(5000), 0);
}

} // namespace
