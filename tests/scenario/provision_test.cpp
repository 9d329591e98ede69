// A provisioning run's configuration and lists, its wait for a connection, and its last step:
// what is new or changed, and how the demonstration application is started.
#include "provision_fixture.h"

#include "platform/curl_dl.h"
#include "provision/config.h"
#include "store/app_listing.h"

using namespace core;
using namespace prov;

namespace {

using Lines = std::vector<std::string>;

// ---------------------------------------------------------------------------------------------
// Key files and lists

struct ConfigCase {
    const char *name;
    std::vector<std::pair<const char *, std::string>> files;
    Lines logged;
    Lines notLogged;
    friend void PrintTo(const ConfigCase &c, std::ostream *os) { *os << c.name; }
};

class ConfigFiles : public ProvisionScenario, public testing::WithParamInterface<ConfigCase> {};

TEST_P(ConfigFiles, DecideTheLists) {
    const ConfigCase &c = GetParam();
    for (const auto &[path, content] : c.files)
        writeFile(path, content);
    before = listing({{"com.acme.user"},
                      {"com.acme.kept"},
                      {"com.acme.sys", "1.0", false, R"(\/usr\/velto\/applications\/s\/i.png)"},
                      {"com.acme.moved", "1.0", false, USER_ICON},
                      {"com.velto.app.findapps", "1.0", false, USER_ICON},
                      {"", "1.0", true, "x"}});
    appManager.reply("/", "listPackages", before);
    startGathered();
    ASSERT_TRUE(waitUntil([] { return getPkgListJSON() != nullptr; }, "the cached listing"))
        << LogCapture::dump();
    LogCapture::clear();
    loadDownloadFileList();
    createDeleteList();
    for (const std::string &line : c.logged)
        EXPECT_TRUE(LogCapture::hasText(line)) << line << "\n" << LogCapture::dump();
    for (const std::string &line : c.notLogged)
        EXPECT_FALSE(LogCapture::hasText(line)) << line;
}

const std::string LONG_RUN(120, 'r');
const char *const NO_WHITELIST =
    "createDeleteList: No whitelist key in 'conf' file, therefore don't delete anything";

INSTANTIATE_TEST_SUITE_P(
    Cases, ConfigFiles,
    testing::Values(
        ConfigCase{"DynamicFileHidesTheOthers",
                   {{DYNAMIC, "[IPKG]\nINSTALL=a\n"},
                    {CARRIER, "[IPKG]\nINSTALL=b;c\nWHITELIST=\n"},
                    {CONFIG, "[IPKG]\nINSTALL=d\nSKIPONRAMP=true\n"}},
                   {"loadDownloadFileList: key has 1 files for key INSTALL", NO_WHITELIST},
                   {"loadDownloadFileList: OnRamp lookup suppressed: Key found"}},
        ConfigCase{"FileWithoutTheGroupIsPassedOver",
                   {{DYNAMIC, "[OTHER]\nINSTALL=a\n"},
                    {CARRIER, "not a key file\n"},
                    {CONFIG, "[IPKG]\nINSTALL=b;c;\nSKIPONRAMP=true\n"}},
                   {"prvImportKeyFile: Can't find group [IPKG] in conf file "
                    "[/var/usr/velto/vyxstage.conf]",
                    "loadDownloadFileList: key has 2 files for key INSTALL",
                    "loadDownloadFileList: OnRamp lookup suppressed: Key found"},
                   {}},
        ConfigCase{"EmptyWhitelistDeletesEveryUserPackageNotToInstall",
                   {{CONFIG, "[IPKG]\nINSTALL= com.acme.kept ;x\nWHITELIST=\nPURGELIST=p\n"}},
                   {"loadDownloadFileList: key has 0 files for key WHITELIST",
                    "createDeleteList: userInstalled package [com.acme.kept] found in 'install' "
                    "list",
                    "isAppUserInstalled: Override userInstalled flag based on app location, id: "
                    "com.acme.moved",
                    "createDeleteList: packages [com.acme.user;com.acme.moved]"},
                   {"loadDownloadFileList: key has 1 files for key PURGELIST"}},
        ConfigCase{"WhitelistKeepsItsPackages",
                   {{CONFIG, "[IPKG]\nINSTALL=x\nWHITELIST=com.acme.user; com.acme.kept\n"}},
                   {"createDeleteList: userInstalled package [com.acme.user] found in "
                    "'whitelist'",
                    "createDeleteList: packages [com.acme.moved]"},
                   {}},
        ConfigCase{"PurgeListOnlyWithoutWhitelist",
                   {{CONFIG, "[IPKG]\nINSTALL=x\nPURGELIST= p1 ;p2\n"}},
                   {"loadDownloadFileList: key has 2 files for key PURGELIST", NO_WHITELIST},
                   {}},
        ConfigCase{"DemoPackagesAreAddedOnce",
                   {{CONFIG, "[IPKG]\nINSTALL=com.velto.app.vyx\n"}},
                   {"loadDownloadFileList: com.velto.vyx.v001 added to file list"},
                   {"loadDownloadFileList: com.velto.app.vyx added to file list"}},
        ConfigCase{"NoFileStillBringsTheDemo",
                   {{CONFIG, "[IPKG]\n"}},
                   {"loadDownloadFileList: error getting INSTALL list from conf file: Key file "
                    "does not have key “INSTALL” in group “IPKG”",
                    "loadDownloadFileList: com.velto.app.vyx added to file list"},
                   {}},
        ConfigCase{"NoQualifyingFile",
                   {},
                   {"loadDownloadFileList: Couldn't find any conf files",
                    "loadDownloadFileList: com.velto.app.vyx added to file list"},
                   {}},
        ConfigCase{"LongRunValueIsCut",
                   {{CONFIG, "[IPKG]\nINSTALL=x\nRUN=" + LONG_RUN + "\n"}},
                   {"loadDownloadFileList: " + LONG_RUN.substr(0, 99) + " added to file list"},
                   {}}),
    rowName);

// ---------------------------------------------------------------------------------------------
// The run's end, without a store: no install list and no profile query

struct EndCase {
    const char *name;
    bool forTheDemo;
    std::string config;
    std::vector<Pkg> before, after;
    std::string changed; // the reconciliation's line
    Lines demoLaunches;  // actions sent to the demonstration application
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
    Lines actions;
    for (const std::string &launch : launches(VYX_CORE_APP_ID, false)) {
        JsonTree root = jsonParse(launch.c_str());
        const JsonNode *params = json_find_first_label(root.get(), "params");
        const char *action = "";
        json_get_string(params->child, "action", &action);
        actions.push_back(action);
    }
    EXPECT_EQ(actions, c.demoLaunches);
    EXPECT_EQ(popups(), c.popups);
}

const Pkg DEMO{"com.velto.app.vyx"};

INSTANTIATE_TEST_SUITE_P(
    Cases, RunEnd,
    testing::Values(
        // Prefix ids never match, and the reboot key counts for the demo's start only.
        EndCase{
            "NewAndChangedPackages",
            false,
            "REBOOT=true\n",
            {{"a", "1.0"}, {"b", "2.0"}, {"com.a", "1.0"}, DEMO},
            {{"a", "1.1"}, {"b", "2.0"}, {"c", "1.0"}, {"com.a", "1.0"}, {"com.ab", "1.0"}, DEMO},
            "listPkgsCBReconcile: 3 new/changed applications: a\t1.1;c\t1.0;com.ab\t1.0",
            {"initialize"},
            {"check", "startVYX"}},
        EndCase{"RebootKeyForTheDemosStart",
                true,
                "REBOOT=true\n",
                {DEMO},
                {DEMO},
                "listPkgsCBReconcile: 0 new/changed applications: ",
                {"reboot"},
                {"check", "startVYX"}},
        EndCase{"ChangedCoreRebootsWhateverTheReason",
                false,
                "",
                {DEMO, {VYX_CORE_APP_ID, "1.0"}},
                {DEMO, {VYX_CORE_APP_ID, "1.1"}},
                "listPkgsCBReconcile: 1 new/changed applications: com.velto.app.vyxcore\t1.1",
                {"reboot"},
                {"check", "startVYX"}},
        EndCase{"DemoMissingAfterAStartRun",
                true,
                "",
                {{"a"}},
                {{"a"}},
                "startupApplication: VYX package com.velto.app.vyx not found and not installed",
                {},
                {"check", "disableVYX"}}, // it may take the place of a waiting "startVYX"
        EndCase{"DemoMissingAfterAVerification",
                false,
                "",
                {{"a"}},
                {{"a"}},
                "startupApplication: VYX package com.velto.app.vyx not found and not installed",
                {"power"},
                {"check", "startVYX"}}),
    rowName);

// ---------------------------------------------------------------------------------------------
// No connection

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
