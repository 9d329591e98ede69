// What the demonstration and core applications receive through the application manager: the
// demo actions, and the pop-ups paced through the one-slot queue.
#include "core_fixture.h"
#include "provision/download.h"

using namespace core;

namespace {

class AppControl : public CoreScenario {
  protected:
    void SetUp() override {
        CoreScenario::SetUp();
        running = runningList({{VYX_CORE_APP_ID, 77}});
    }
    std::vector<std::string> popups() const { return launches("popupalert"); }
};

// The display tests and the whole runs see the usual demo actions; these forms are the other
// callers'. A successful demo launch tells the core application the demonstration started.
TEST_F(AppControl, ActionPayloads) {
    startWithDemo(DEMO_OFF);
    launchVYXAction("initialize", nullptr, "com.acme.demo");
    launchVYXAction(nullptr, nullptr, nullptr);
    launchVYXCoreAction("initialize", "com.acme.demo", false, nullptr);
    launchVYXCoreAction("startVyx", nullptr, true, "2.1");
    ASSERT_TRUE(waitUntil([&] { return appRequests().size() >= 6; }, "the launches"));
    EXPECT_EQ(launches(VYX_CORE_APP_ID, false),
              (std::vector<std::string>{launchOf("com.acme.demo", R"("action":"initialize" )"),
                                        launchOf("com.velto.app.vyx", R"("action":"" )")}));
    const char *first =
        R"("action":"initialize", "appName":"com.acme.demo", "appLaunch":false, "version":"")";
    const char *second =
        R"("action":"startVyx", "appName":"com.velto.app.vyx", "appLaunch":true, "version":"2.1")";
    EXPECT_EQ(launches("appLaunch"), (std::vector<std::string>{launchOf(VYX_CORE_APP_ID, first),
                                                               launchOf(VYX_CORE_APP_ID, second)}));
    EXPECT_EQ(launches(CORE_START), (std::vector<std::string>(2, CORE_START)));
    EXPECT_EQ(isVyxAppPresent(), 1);
}

TEST_F(AppControl, TwoPopupsInTheSameSecondGoOutOneAfterTheOther) {
    startWithDemo(DEMO_OFF);
    launchVYXCoreMessage("startInstall", "Demo Videos", "0");
    launchVYXCoreMessage("continueInstall", std::string(150, 'n').c_str(), "20");
    ASSERT_TRUE(waitUntil([&] { return popups().size() >= 2; }, "both pop-ups"));
    EXPECT_EQ(popups(), (std::vector<std::string>{
                            popup("startInstall", "Demo Videos", "0"),
                            popup("continueInstall", std::string(99, 'n').c_str(), "20")}));
    // The second waited for the first one's reply, a look at the running list and a pause.
    EXPECT_EQ(appManager.count("running"), 1);
    EXPECT_EQ(FakeHost::sleeps, std::vector<unsigned>{1});

    // Once the last reply is in and two seconds have passed, a pop-up goes out directly.
    ASSERT_TRUE(
        waitUntil([] { return LogCapture::count("vyxCoreMessageCB: " + std::string(OK)) == 2; },
                  "the second pop-up's reply"));
    FakeHost::advance(2);
    launchVYXCoreMessage("endInstall", nullptr, nullptr);
    ASSERT_TRUE(waitUntil([&] { return popups().size() == 3; }, "the third pop-up"));
    EXPECT_EQ(appManager.count("running"), 1);
}

TEST_F(AppControl, CoreActionMakesAFollowingPopupWait) {
    startWithDemo(DEMO_OFF);
    running = NOTHING_RUNNING; // the core application is not up yet
    launchVYXCoreAction("initialize", "com.velto.app.vyx", false, nullptr);
    launchVYXCoreMessage("startVYX", nullptr, nullptr);
    ASSERT_TRUE(waitUntil([&] { return popups().size() == 1; }, "the delayed pop-up"));
    EXPECT_EQ(popups()[0], popup("startVYX"));
    // A second look at the running list because the core application was not in the first.
    EXPECT_GE(appManager.count("running"), 2);
}

// The first pop-up is in flight; the later ones arrive in the same second.
struct QueueCase {
    const char *name;
    std::vector<const char *> later;
    const char *delivered; // the one pop-up that follows the first
    friend void PrintTo(const QueueCase &c, std::ostream *os) { *os << c.name; }
};

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
}

const QueueCase QUEUE_CASES[] = {
    {"NoProfileKeptOverCheck", {"noProfile", "check"}, "noProfile"},
    {"DisableReplacesNoProfile", {"noProfile", "disableVYX"}, "disableVYX"},
    {"EndInstallReplacesCheck", {"check", "endInstall"}, "endInstall"},
    {"StartKeptOverProgress", {"startVYX", "continueInstall"}, "startVYX"},
    {"NoProfileReplacesStart", {"startVYX", "noProfile"}, "noProfile"},
};

INSTANTIATE_TEST_SUITE_P(Cases, PopupSlot, testing::ValuesIn(QUEUE_CASES), rowName);

} // namespace
