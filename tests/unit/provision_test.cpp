// A run's key files and the lists read from them, against a cached listing; what an install
// service's state words mean for a package's progress, and the overall percent shown.
#include "bus_test.h"
#include "provision/config.h"
#include "provision/install_status.h"
#include "scenario/provision_fixture.h"
#include "store/app_listing.h"
#include "sysinfo/sysinfo.h"

using namespace core;
using namespace prov;

namespace {

struct ConfigCase {
    const char *name;
    std::vector<std::pair<const char *, std::string>> files;
    Lines logged;
    Lines notLogged;
    friend void PrintTo(const ConfigCase &c, std::ostream *os) { *os << c.name; }
};

class ConfigFiles : public RootTest, public testing::WithParamInterface<ConfigCase> {};

TEST_P(ConfigFiles, DecideTheLists) {
    const ConfigCase &c = GetParam();
    for (const auto &[path, content] : c.files)
        writeFile(path, content);
    std::string apps =
        listing({{"com.acme.user"},
                 {"com.acme.kept"},
                 {"com.acme.sys", "1.0", false, R"(\/usr\/velto\/applications\/s\/i.png)"},
                 {"com.acme.moved", "1.0", false, USER_ICON},
                 {"com.velto.app.findapps", "1.0", false, USER_ICON},
                 {"", "1.0", true, "x"}});
    // The device's hardware decides the demonstration's video.
    const char *carrier = R"({"values":[{"com.velto.properties.machineName":"tarsk"}]})";
    for (auto [callback, payload] : {std::pair{&listPkgsCB, apps.c_str()}, {carrierCB, carrier}}) {
        BusMessage *message = KSMessageNewForTest(payload);
        callback(nullptr, message, nullptr);
        KSMessageUnref(message);
    }
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

const std::string LOAD = "loadDownloadFileList: ", DELETES = "createDeleteList: ";
const std::string ONRAMP_OFF = LOAD + "OnRamp lookup suppressed: Key found";
const std::string DEMO_ADDED = LOAD + "com.velto.app.vyx added to file list";

// clang-format off
const ConfigCase CASES[] = {
    {"DynamicFileHidesTheOthers",
     {{DYNAMIC, "[IPKG]\nINSTALL=a\n"}, {CARRIER, "[IPKG]\nINSTALL=b;c\nWHITELIST=\n"},
      {CONFIG, "[IPKG]\nINSTALL=d\nSKIPONRAMP=true\n"}},
     {LOAD + "key has 1 files for key INSTALL", NO_WHITELIST}, {ONRAMP_OFF}},
    {"FileWithoutTheGroupIsPassedOver",
     {{DYNAMIC, "[OTHER]\nINSTALL=a\n"}, {CARRIER, "not a key file\n"},
      {CONFIG, "[IPKG]\nINSTALL=b;c;\nSKIPONRAMP=true\n"}},
     {"prvImportKeyFile: Can't find group [IPKG] in conf file [/var/usr/velto/vyxstage.conf]",
      LOAD + "key has 2 files for key INSTALL", ONRAMP_OFF}, {}},
    {"EmptyWhitelistDeletesEveryUserPackageNotToInstall",
     {{CONFIG, "[IPKG]\nINSTALL= com.acme.kept ;x\nWHITELIST=\nPURGELIST=p\n"}},
     {LOAD + "key has 0 files for key WHITELIST",
      DELETES + "userInstalled package [com.acme.kept] found in 'install' list",
      "isAppUserInstalled: Override userInstalled flag based on app location, id: com.acme.moved",
      DELETES + "packages [com.acme.user;com.acme.moved]"},
     {LOAD + "key has 1 files for key PURGELIST"}},
    {"WhitelistKeepsItsPackages", {{CONFIG, "[IPKG]\nINSTALL=x\nWHITELIST=com.acme.user; com.acme.kept\n"}},
     {DELETES + "userInstalled package [com.acme.user] found in 'whitelist'",
      DELETES + "packages [com.acme.moved]"}, {}},
    {"DemoPackagesAreAddedOnce", {{CONFIG, "[IPKG]\nINSTALL=com.velto.app.vyx\n"}},
     {LOAD + "com.velto.vyx.v001 added to file list"}, {DEMO_ADDED}},
    {"NoFileStillBringsTheDemo", {{CONFIG, "[IPKG]\n"}},
     {LOAD + "error getting INSTALL list from conf file: Key file does not have key “INSTALL” in "
             "group “IPKG”", DEMO_ADDED}, {}},
    {"NoQualifyingFile", {}, {LOAD + "Couldn't find any conf files", DEMO_ADDED}, {}},
    {"LongRunValueIsCut", {{CONFIG, "[IPKG]\nINSTALL=x\nRUN=" + LONG_RUN + "\n"}},
     {LOAD + LONG_RUN.substr(0, 99) + " added to file list"}, {}},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Cases, ConfigFiles, testing::ValuesIn(CASES), rowName);

TEST(InstallStatus, StateWordsGiveCodeAndTablePercent) {
    struct Case {
        const char *state, *progress;
        InstallStatusCode code;
        unsigned percent; // of a lone package, as the overall percent shows it
    } cases[] = {
        {"ipk download current", "50", INSTALL_DOWNLOADING, 46},
        {"ipk download current", "3", INSTALL_DOWNLOADING, 4},
        {"ipk download current", "100", INSTALL_DOWNLOADING, 92},
        {"icon download failed", "", INSTALL_FAILED, 100}, // the end decides first
        {"IconDownloading", "70", INSTALL_ICON, 2},
        {"installing", "", INSTALL_ACTIVE, 95},
        {"installed", "", INSTALL_DONE, 100},
        {"download canceled", "10", INSTALL_CANCELED, 100},
        {"download paused", "10", INSTALL_PAUSED, 0},
        {"REMOVING", "", INSTALL_REMOVING, 0},
        {"Removed", "", INSTALL_REMOVED, 0},
        {"queued", "", INSTALL_DONE, 100},
        {"waiting", "", INSTALL_ACTIVE, 95},
        {"something else", "", INSTALL_UNKNOWN, 0},
        {"", "5", INSTALL_INVALID, 0},
    };
    for (const Case &c : cases) {
        resetDownloadFileProgress();
        addToInstallProgressTable("com.acme.p", 1000);
        unsigned progress = 0;
        InstallStatusCode code = getStatusInstallService(c.state, c.progress, &progress);
        EXPECT_EQ(code, c.code) << c.state;
        updateInstallProgressTable("com.acme.p", code, progress);
        EXPECT_EQ(computeInstallPercent(), c.percent) << c.state;
    }
}

TEST(InstallStatus, OverallPercentWeighsBySizeAndStaysInRangeOnLargeSizes) {
    addToInstallProgressTable("com.acme.small", 1000000);
    addToInstallProgressTable("com.acme.large", 3000000);
    EXPECT_EQ(computeInstallPercent(), 0u);
    updateInstallProgressTable("com.acme.small", INSTALL_DONE, 100);
    updateInstallProgressTable("com.acme.large", INSTALL_DOWNLOADING, 55); // 50 in the table
    EXPECT_EQ(computeInstallPercent(), 62u);
    // Entries beyond the first ten grow the table; ids too long or sizes of 0 are refused.
    for (int i = 0; i < 12; i++)
        addToInstallProgressTable(("com.acme.more" + std::to_string(i)).c_str(), 1);
    addToInstallProgressTable(std::string(256, 'x').c_str(), 5);
    addToInstallProgressTable("com.acme.empty", 0);
    EXPECT_FALSE(updateInstallProgressTable(std::string(256, 'x').c_str(), INSTALL_DONE, 0));
    EXPECT_FALSE(updateInstallProgressTable("com.acme.empty", INSTALL_DONE, 0));
    EXPECT_TRUE(updateInstallProgressTable("com.acme.more11", INSTALL_DONE, 0));
    // All but the last byte is all: the bar reaches its end.
    resetDownloadFileProgress();
    addToInstallProgressTable("com.acme.big", 999);
    addToInstallProgressTable("com.acme.byte", 1);
    updateInstallProgressTable("com.acme.big", INSTALL_DONE, 100);
    EXPECT_EQ(computeInstallPercent(), 100u);
}

} // namespace
