// The process around the modules: the idle exit timer's rules, and what is answered when the
// process ends.
#include <signal.h>

#include "core_fixture.h"

namespace {

class Lifecycle : public RootTest {};

TEST_F(Lifecycle, ExitTimerLengthDecidesWhetherLaterShortRearmsCount) {
    struct Case {
        guint32 first, second;
        guint32 armed;       // interval in force afterwards
        const char *logLine; // the line that explains it
    } cases[] = {
        {300000, 10000, 300000,
         "startExitTimer: Short timeout for 10000 msec ignored as long timeout running"},
        {300000, 300000, 300000, "startExitTimer: Starting a long exit timer for 300000 msec"},
        {300000, 0, 300000, "startExitTimer: Invalid parameters, return FALSE"},
        // After a stop a long timer no longer holds off a short one.
        {299999, 10000, 10000, "startExitTimer: Starting a short exit timer for 10000 msec"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << c.first << " then " << c.second);
        stopExitTimer(getExitTimer());
        LogCapture::clear();
        ASSERT_TRUE(startExitTimer(getExitTimer(), exitTimerCB, c.first));
        GSource *before = getExitTimer()->source;
        bool accepted = startExitTimer(getExitTimer(), exitTimerCB, c.second);
        EXPECT_EQ(accepted, c.second != 0);
        EXPECT_EQ(getExitTimer()->interval, c.armed);
        EXPECT_TRUE(LogCapture::has(LOG_DEBUG, c.logLine)) << LogCapture::dump();
        if (c.second == 10000 && c.armed == 300000) {
            EXPECT_EQ(getExitTimer()->source, before); // the long timer keeps its expiry
        }
    }
}

// The demo preference is never read, so the demo state stays unknown.
class RunningService : public CoreScenario {
  protected:
    void SetUp() override {
        CoreScenario::SetUp();
        holdPrefReads = true;
        startDaemon();
    }
};

TEST_F(RunningService, StartsWithAShortExitTimerAndReadsThePreference) {
    EXPECT_EQ(getExitTimer()->interval, 10000u);
    EXPECT_NE(getExitTimer()->handle, nullptr);
    ASSERT_TRUE(waitUntil([&] { return held.size() == 1; }, "preference read"));
    EXPECT_EQ(systemService.lastPayload("getPreferences"),
              "{\"keys\":[\"vyxStageRunning\", \"vyxStageDetails\"]}");
}

// Old applications still call these; the reply is their contract, the payload never read.
TEST_F(RunningService, RetiredMethodsSayTheyAreNoLongerSupported) {
    for (const char *method :
         {"setUserInput", "timedout", "tapped", "closetutorial", "sendDownloadStatus"}) {
        SCOPED_TRACE(method);
        stopExitTimer(getExitTimer());
        EXPECT_EQ(call(method, "not json"),
                  core::negative("Method no longer supported by vyxService."));
        EXPECT_EQ(getExitTimer()->interval, 10000u);
    }
}

TEST_F(RunningService, RepeatFlagPostponesTheFirstExpiryOnly) {
    setRepeatTimer(true);
    exitTimerCB(getExitTimer());
    EXPECT_EQ(getExitTimer()->interval, 300000u);
    EXPECT_EQ(FakeHost::exits, 0);

    exitTimerCB(getExitTimer());
    EXPECT_EQ(FakeHost::exits, 1);
    EXPECT_EQ(FakeHost::lastExitStatus, 0);
    EXPECT_EQ(getExitTimer()->source, nullptr);
}

// The idle exit's answers are pinned end to end. At a signal a held information request is
// answered; a held demo state is not, and the bus tells the caller that no answer comes.
TEST_F(RunningService, SigintAnswersOnlyTheHeldInformationRequest) {
    hold(accounts, "/", "getAccountToken");
    BusClient app;
    ASSERT_TRUE(app.send(std::string(core::SERVICE) + "downloadAppInfo", "{}"));
    ASSERT_TRUE(client->send(std::string(core::SERVICE) + "demoState", "{}"));
    ASSERT_TRUE(waitUntil(
        [] {
            return LogCapture::contains("Demo status unknown") &&
                   LogCapture::contains("serverUrlCB: payload");
        },
        "both calls held"));
    sigproc(SIGINT);
    EXPECT_EQ(FakeHost::exits, 1);
    EXPECT_EQ(FakeHost::lastExitStatus, 0);
    ASSERT_TRUE(waitUntil([&] { return !app.replies().empty() && !client->replies().empty(); },
                          "both replies"));
    EXPECT_EQ(app.replies()[0], core::negative("Timeout in service"));
    EXPECT_EQ(client->replies()[0].find("\"state\""), std::string::npos) << client->replies()[0];
}

} // namespace
