// "assignConfigFile" and "verifyPackages": what they answer, what they do to the dynamic
// configuration file and the saved profile list, and whether a run follows.
#include "core_fixture.h"

#include "provision/download.h"
#include "service/config_methods.h"
#include "store/profile.h"

using namespace core;

namespace {

const char DYNAMIC[] = "/var/usr/velto/vyxstage.conf";
const char APPS[] = "/media/cryptofs/apps/usr/velto/applications/";

TEST(ConfigFileName, StaysBelowTheApplicationsDirectory) {
    for (const char *good :
         {"com.velto.app.x/vyx.conf", "com.velto.x.conf", "com.velto.a/b/c.conf"})
        EXPECT_TRUE(isValidConfigFileName(good)) << good;
    for (const char *bad :
         {"com.velto.app/../../etc.conf", "com.velto./x.conf", "com.velto.x.ini",
          "org.velto.x.conf", "com.velto.a$b.conf", "com.velto.a\\u002e.conf", ""})
        EXPECT_FALSE(isValidConfigFileName(bad)) << bad;
}

struct MethodCase {
    const char *name;
    const char *demo; // stored preference
    const char *method;
    std::string payload;
    std::string reply;
    const char *dynamicAfter; // content, or null when absent
    bool runStarts;
    bool profileDeleted;
    friend void PrintTo(const MethodCase &c, std::ostream *os) { *os << c.name; }
};

class ConfigMethods : public CoreScenario, public testing::WithParamInterface<MethodCase> {};

TEST_P(ConfigMethods, AnswerAndStartARunWhenSomethingChanged) {
    const MethodCase &c = GetParam();
    writeFile(std::string(APPS) + "com.velto.app.x/vyx.conf", "[IPKG]\nINSTALL=new\n");
    writeFile(DYNAMIC, "[IPKG]\nINSTALL=old\n");
    writeFile(PROFILE_LIST_FILE, "com.acme.a");
    appManager.silent("/", "listPackages"); // the run itself is provisioning's business
    startWithDemo(c.demo);
    EXPECT_EQ(call(c.method, c.payload), c.reply);
    spinFor(50);
    EXPECT_EQ(fileExists(DYNAMIC) ? readFile(DYNAMIC) : "<absent>",
              c.dynamicAfter ? c.dynamicAfter : "<absent>");
    EXPECT_EQ(LogCapture::hasText("initiateFileDownload: Started"), c.runStarts);
    EXPECT_EQ(!fileExists(PROFILE_LIST_FILE), c.profileDeleted);
}

const char *const OLD = "[IPKG]\nINSTALL=old\n";
const char *const NEW = "[IPKG]\nINSTALL=new\n";

INSTANTIATE_TEST_SUITE_P(
    Cases, ConfigMethods,
    testing::Values(
        MethodCase{"CopyWhileTheDemoIsOff", DEMO_OFF, "assignConfigFile",
                   R"({"name":"com.velto.app.x/vyx.conf","action":"Copy"})", OK, NEW, false, true},
        MethodCase{"CopyOfAMissingFile", DEMO_ON, "assignConfigFile",
                   R"({"name":"com.velto.app.x/none.conf","action":"copy"})",
                   negative("Named file not found: com.velto.app.x/none.conf"), OLD, false, false},
        MethodCase{"DeleteStartsARun", DEMO_ON, "assignConfigFile", R"({"action":"DELETE"})", OK,
                   nullptr, true, true},
        MethodCase{"BadNameEvenForDelete", DEMO_ON, "assignConfigFile",
                   R"({"name":"com.velto.app/../vyx.conf","action":"delete"})",
                   negative("'name' is invalid"), OLD, false, false},
        MethodCase{"UnknownAction", DEMO_ON, "assignConfigFile", R"({"action":"move"})",
                   negative("'action' missing or invalid"), OLD, false, false},
        MethodCase{"NoAction", DEMO_ON, "assignConfigFile", R"({"name":"com.velto.x.conf"})",
                   negative("Parameter error"), OLD, false, false},
        MethodCase{"VerifyWhileOff", DEMO_OFF, "verifyPackages", "{}",
                   negative("VYX is not running"), OLD, false, false}),
    rowName);

TEST_F(CoreScenario, DeleteWithoutADynamicFileIsSkippedAndVerifyWaitsForARunningDownload) {
    startWithDemo(DEMO_ON);
    EXPECT_EQ(call("assignConfigFile", R"({"action":"delete"})"), OK);
    EXPECT_TRUE(LogCapture::hasText(
        "assignConfigFile: Affirmative response sent, action 'delete' skipped"));
    setDownloadStateMode(DSM_INSTALLING, "test");
    EXPECT_EQ(call("verifyPackages", "{}"), negative("VYX file download already in process"));
    EXPECT_FALSE(LogCapture::hasText("initiateFileDownload: Started"));
}

} // namespace
