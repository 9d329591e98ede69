// What the demonstration and core applications receive through the application manager: the
// demo actions, and the pop-ups paced through the one-slot queue.
#include "core_fixture.h"

#include "provision/download.h"
#include "sysinfo/download_info.h"
#include "sysinfo/sysinfo.h"

using namespace core;

namespace {

class AppControl : public CoreScenario {
  protected:
    void SetUp() override {
        CoreScenario::SetUp();
        running = runningList({{VYX_CORE_APP_ID, 77}});
    }
    std::vector<std::string> popups() const {
        std::vector<std::string> found;
        for (const std::string &request : appRequests())
            if (request.find("popupalert") != std::string::npos)
                found.push_back(request.substr(sizeof "launch " - 1));
        return found;
    }
    std::vector<std::string> demoLaunches() const {
        std::vector<std::string> found;
        for (const std::string &request : appRequests())
            if (request.find(VYX_CORE_APP_ID) == std::string::npos)
                found.push_back(request.substr(sizeof "launch " - 1));
        return found;
    }
};

TEST_F(AppControl, DemoActionPayloads) {
    startWithDemo(DEMO_OFF);
    struct Case {
        const char *action, *extra, *appId;
        std::string payload;
    } cases[] = {
        {"power", nullptr, nullptr, launchOf("com.velto.app.vyx", R"("action":"power" )")},
        {"power", R"("playVideo":true)", nullptr, PLAY_VIDEO},
        {"power", R"(,"playVideo":true)", nullptr, PLAY_VIDEO},
        {"power", "", "", launchOf("com.velto.app.vyx", R"("action":"power" )")},
        {"initialize", nullptr, "com.acme.demo",
         launchOf("com.acme.demo", R"("action":"initialize" )")},
        {nullptr, nullptr, nullptr, launchOf("com.velto.app.vyx", R"("action":"" )")},
    };
    std::vector<std::string> expected;
    for (const Case &c : cases) {
        launchVYXAction(c.action, c.extra, c.appId);
        expected.push_back(c.payload);
    }
    ASSERT_TRUE(
        waitUntil([&] { return demoLaunches().size() >= expected.size(); }, "the launches"));
    EXPECT_EQ(demoLaunches(), expected);
    // Each successful launch tells the core application that the demonstration started.
    ASSERT_TRUE(waitUntil([&] { return appRequests().size() >= 2 * expected.size(); },
                          "the core start messages"));
    EXPECT_EQ(isVyxAppPresent(), 1);
    EXPECT_TRUE(LogCapture::has(LOG_DEBUG, "prvLaunchVYXCB: vyxCore changed: " + CORE_START));
}

TEST_F(AppControl, CoreActionPayload) {
    startWithDemo(DEMO_OFF);
    launchVYXCoreAction("initialize", "com.acme.demo", false, nullptr);
    launchVYXCoreAction("startVyx", nullptr, true, "2.1");
    ASSERT_TRUE(waitUntil([&] { return appRequests().size() >= 2; }, "the core actions"));
    EXPECT_EQ(
        appRequests(),
        (std::vector<std::string>{
            "launch " +
                launchOf(
                    VYX_CORE_APP_ID,
                    R"("action":"initialize", "appName":"com.acme.demo", "appLaunch":false, "version":"")"),
            "launch " +
                launchOf(
                    VYX_CORE_APP_ID,
                    R"("action":"startVyx", "appName":"com.velto.app.vyx", "appLaunch":true, "version":"2.1")")}));
}

TEST_F(AppControl, TwoPopupsInTheSameSecondGoOutOneAfterTheOther) {
    startWithDemo(DEMO_OFF);
    std::string longName(150, 'n'), cutName(99, 'n');
    launchVYXCoreMessage("startInstall", "Demo Videos", "0");
    launchVYXCoreMessage("continueInstall", longName.c_str(), "20");
    EXPECT_EQ(popups(), std::vector<std::string>{});
    ASSERT_TRUE(waitUntil([&] { return popups().size() >= 2; }, "both pop-ups"));
    EXPECT_EQ(popups(),
              (std::vector<std::string>{popup("startInstall", "Demo Videos", "0"),
                                        popup("continueInstall", cutName.c_str(), "20")}));
    // The second waited for the first one's reply, a look at the running list and a pause.
    EXPECT_EQ(appManager.count("running"), 1);
    EXPECT_EQ(FakeHost::sleeps, std::vector<unsigned>{1});
    for (const char *line : {"launchVYXCoreMessage: Message 'continueInstall' queued",
                             "vyxCoreMessageCB: Message 'continueInstall' delayed",
                             "vyxCoreMessageDelayCB: Message 'continueInstall' dequeued"})
        EXPECT_TRUE(LogCapture::has(LOG_DEBUG, line)) << line;

    // Once the last reply is in and two seconds have passed, a pop-up goes out directly.
    ASSERT_TRUE(
        waitUntil([] { return LogCapture::count("vyxCoreMessageCB: " + std::string(OK)) == 2; },
                  "the second pop-up's reply"));
    FakeHost::advance(2);
    launchVYXCoreMessage("endInstall", nullptr, nullptr);
    EXPECT_EQ(popups().size(), 2u); // sent, not yet arrived
    ASSERT_TRUE(waitUntil([&] { return popups().size() == 3; }, "the third pop-up"));
    EXPECT_EQ(appManager.count("running"), 1);
}

TEST_F(AppControl, CoreActionMakesAFollowingPopupWait) {
    startWithDemo(DEMO_OFF);
    running = NOTHING_RUNNING; // the core application is not up yet
    launchVYXCoreAction("initialize", "com.velto.app.vyx", false, nullptr);
    launchVYXCoreMessage("startVYX", nullptr, nullptr);
    EXPECT_TRUE(LogCapture::has(LOG_DEBUG, "launchVYXCoreMessage: Message 'startVYX' delayed"));
    ASSERT_TRUE(waitUntil([&] { return popups().size() == 1; }, "the delayed pop-up"));
    EXPECT_EQ(popups()[0], popup("startVYX"));
    EXPECT_TRUE(
        LogCapture::has(LOG_DEBUG, "vyxCoreMessageDelayCB: Message 'startVYX' delayed again"));
    EXPECT_GE(appManager.count("running"), 2);
}

// The first pop-up is in flight; the later ones arrive in the same second.
struct QueueCase {
    const char *name;
    std::vector<const char *> later;
    const char *delivered;   // the one pop-up that follows the first
    const char *ignoredLine; // or null
};

void PrintTo(const QueueCase &c, std::ostream *os) {
    *os << c.name;
}

class PopupSlot : public AppControl, public testing::WithParamInterface<QueueCase> {};

TEST_P(PopupSlot, KeepsOnlyTheMessageThatMatters) {
    const QueueCase &c = GetParam();
    startWithDemo(DEMO_OFF);
    launchVYXCoreMessage("startInstall", nullptr, nullptr);
    for (const char *message : c.later)
        launchVYXCoreMessage(message, nullptr, nullptr);
    ASSERT_TRUE(waitUntil([&] { return popups().size() >= 2; }, "the queued pop-up"));
    spinFor(100);
    EXPECT_EQ(popups(), (std::vector<std::string>{popup("startInstall"), popup(c.delivered)}));
    if (c.ignoredLine) {
        EXPECT_TRUE(LogCapture::has(LOG_DEBUG, c.ignoredLine)) << LogCapture::dump();
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, PopupSlot,
    testing::Values(
        QueueCase{"NoProfileKeptOverCheck",
                  {"noProfile", "check"},
                  "noProfile",
                  "launchVYXCoreMessage: Message 'check' ignored"},
        QueueCase{"DisableReplacesNoProfile", {"noProfile", "disableVYX"}, "disableVYX", nullptr},
        QueueCase{"EndInstallReplacesCheck", {"check", "endInstall"}, "endInstall", nullptr},
        QueueCase{"LatestProgressWins",
                  {"continueInstall", "continueInstall", "endInstall"},
                  "endInstall",
                  nullptr},
        QueueCase{"StartKeptOverProgress",
                  {"startVYX", "continueInstall"},
                  "startVYX",
                  "launchVYXCoreMessage: Message 'continueInstall' ignored"},
        QueueCase{"NoProfileReplacesStart", {"startVYX", "noProfile"}, "noProfile", nullptr}),
    [](const testing::TestParamInfo<QueueCase> &info) { return info.param.name; });

// ---------------------------------------------------------------------------------------------
// A demo action that fails: the demonstration application is missing.

TEST_F(AppControl, FailedLaunchGathersSystemInformationFirst) {
    demoLaunchReply = R"({"returnValue":false,"errorCode":-1,"errorText":"not installed"})";
    startWithDemo(DEMO_OFF);
    launchVYXAction("initialize", nullptr, nullptr);
    ASSERT_TRUE(waitUntil([] { return isVyxAppPresent() == 0; }, "the failed launch"));
    EXPECT_TRUE(isRunLocalFileDownload());
    ASSERT_TRUE(waitUntil([&] { return accounts.count("getAccountToken") == 1; },
                          "the system information request"));
    for (const std::string &request : appRequests())
        EXPECT_NE(request, "launch " + CORE_START);
}

TEST_F(AppControl, FailedLaunchWithSystemInformationAsksForThePackages) {
    demoLaunchReply = R"({"returnValue":false,"errorCode":-1,"errorText":"not installed"})";
    startWithDemo(DEMO_OFF);
    requestSystemInfo();
    ASSERT_TRUE(waitUntil([] { return isAllSystemInfoPresent("test"); }, "system information"));
    spinFor(50);
    int listings = appManager.count("listPackages");
    launchVYXAction("initialize", nullptr, nullptr);
    ASSERT_TRUE(waitUntil([&] { return appManager.count("listPackages") == listings + 1; },
                          "the package listing"));
    EXPECT_EQ(isVyxAppPresent(), 0);
    EXPECT_FALSE(isRunLocalFileDownload());
}

} // namespace
