// A provisioning run's configuration and lists, its wait for a connection, and its last step:
// what is new or changed, and how the demonstration application is started.
#include "provision_fixture.h"

#include "platform/curl_dl.h"
#include "provision/config.h"
#include "store/app_listing.h"

using namespace core;
using namespace prov;

namespace {

// The run's end, without a store: no install list and no profile query.
struct EndCase {
    const char *name;
    bool forTheDemo;
    std::string config;
    std::vector<Pkg> before, after;
    std::string changed; // the reconciliation's line
    Lines demoLaunches;  // sent to the demonstration application
    Lines popups;
    friend void PrintTo(const EndCase &c, std::ostream *os) { *os << c.name; }
};

class RunEnd : public ProvisionScenario, public testing::WithParamInterface<EndCase> {};

TEST_P(RunEnd, StartsTheDemonstrationAsTheChangesSay) {
    const EndCase &c = GetParam();
    writeFile(CONFIG, "[IPKG]\nSKIPONRAMP=true\n" + c.config);
    before = listing(c.before);
    after = listing(c.after);
    startRun(c.forTheDemo);
    ASSERT_TRUE(waitUntil([&] { return runEnded(); }, "the run's end"));
    spinFor(100);
    EXPECT_TRUE(LogCapture::hasText(c.changed)) << LogCapture::dump();
    EXPECT_EQ(launches(VYX_CORE_APP_ID, false), c.demoLaunches);
    EXPECT_EQ(popups(), c.popups);
}

const Pkg DEMO{"com.velto.app.vyx"};
const std::string INIT = launchOf("com.velto.app.vyx", R"("action":"initialize")");
const std::string REBOOT = launchOf("com.velto.app.vyx", R"("action":"reboot")");
const std::string POWER = launchOf("com.velto.app.vyx", R"("action":"power" )");

// Prefix ids never match, and the reboot key counts for the demo's start only.
const char CHANGED[] = "listPkgsCBReconcile: 3 new/changed applications: a\t1.1;c\t1.0;com.ab\t1.0";
const char MISSING[] =
    "startupApplication: VYX package com.velto.app.vyx not found and not installed";
const Lines STARTED = {"check", "startVYX"};
// clang-format off
const EndCase END_CASES[] = {
    {"NewAndChangedPackages", false, "REBOOT=true\n", {{"a", "1.0"}, {"b", "2.0"}, {"com.a", "1.0"}, DEMO},
     {{"a", "1.1"}, {"b", "2.0"}, {"c", "1.0"}, {"com.a", "1.0"}, {"com.ab", "1.0"}, DEMO}, CHANGED,
     {INIT}, STARTED},
    {"RebootKeyForTheDemosStart", true, "REBOOT=true\n", {DEMO}, {DEMO},
     "listPkgsCBReconcile: 0 new/changed applications: ", {REBOOT}, STARTED},
    {"DemoMissingAfterAVerification", false, "", {{"a"}}, {{"a"}}, MISSING, {POWER}, STARTED},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Cases, RunEnd, testing::ValuesIn(END_CASES), rowName);

TEST_F(ProvisionScenario, ConnectionWaitShowsItsShareAndGivesUpAfterAMinute) {
    connMgr.reply("/", "getstatus",
                  R"({"returnValue":true,"isInternetConnectionAvailable":false,)"
                  R"("wifi":{"state":"connected"},"wan":{"network":"lte"}})");
    writeFile(CONFIG, "[IPKG]\nINSTALL=x\n");
    startRun(false);
    ASSERT_TRUE(waitUntil([&] { return !popups().empty(); }, "the run's first pop-up"));
    ASSERT_TRUE(LogCapture::hasText("checkOnRampInfo: no connection"));
    Lines expected = {"check"};
    for (int waited = 2; waited <= 62; waited += 2) {
        size_t shown = popups().size();
        FakeHost::advance(2);
        statusTimerCB(nullptr);
        ASSERT_TRUE(waitUntil([&] { return popups().size() > shown; }, "the next pop-up"));
        expected.push_back(waited <= 60 ? "waitConnect " + std::to_string(waited * 100 / 60)
                                        : "failConnect");
    }
    EXPECT_EQ(popups(), expected);
    EXPECT_TRUE(LogCapture::has(LOG_ALERT, "statusTimerCB: Give up waiting for internet access"));
    EXPECT_TRUE(LogCapture::hasText("processEndPackageInfo: Called with failType 2 from "
                                    "statusTimerCB"));
}

TEST_F(ProvisionScenario, WithoutTheStoreLibraryTheRunEndsAsWithoutAHandle) {
    curlSetLibraryName("libvyx-absent.so.0");
    writeFile(CONFIG, "[IPKG]\nINSTALL=x\n");
    startRun(false);
    ASSERT_TRUE(waitUntil([&] { return popups().size() == 2; }, "the run's last pop-up"));
    EXPECT_TRUE(LogCapture::has(LOG_ERR,
                                "curlOpen: Can't load libvyx-absent.so.0: libvyx-absent.so.0: "
                                "cannot open shared object file: No such file or directory"))
        << LogCapture::dump();
    EXPECT_TRUE(LogCapture::hasText("checkOnRampInfo: No curl handle"));
    EXPECT_EQ(popups(), (Lines{"check", "failConnect"}));
}

} // namespace
