// The user's store profile against a real HTTP server: how each reply is read and which saved
// packages are handed over for deletion; the saved profile list file.
#include "store/profile.h"
#include "store_fixture.h"

using namespace std::string_literals;

namespace {

const char BODY[] = "{'InGetUserAppsV2':{'accountTokenInfo':{'token':'tok','deviceId':'dev-1',"
                    "'email':'a@b.c','carrier':'VZW'}, 'locale':'en_US'} }";
const char NO_ID[] =
    R"({"OutGetUserInstalledAppsV2":{"userApps":[{"x":1},{"publicApplicationId":"p"}]}})";
const char NO_APPS[] = R"({"OutGetUserInstalledAppsV2":{}})";

std::string profile(const std::string &userApps) {
    return R"({"OutGetUserInstalledAppsV2":{"userApps":)" + userApps + "}}";
}

struct ProfileCase {
    const char *name;
    const char *saved; // the profile list file of the last run; null for none
    StoreReply reply;
    bool result;
    std::vector<LogLine> lines;
    const char *absent; // a fragment no line may hold; null for none
    friend void PrintTo(const ProfileCase &c, std::ostream *os) { *os << c.name; }
};

const std::string PARSE = "parseBazaroProfileResponse: ";
const std::string VERIFY = "verifyProfilePackages: ";

// clang-format off
const ProfileCase PROFILE_CASES[] = {
    {"EmptyProfileHandsOverAllSaved", "a;b", {200, {profile("[]")}}, true,
     {{LOG_DEBUG, PARSE + "Processed 0 URLs, packages: <<empty>>"},
      {LOG_DEBUG, VERIFY + "Delete list: a;b"}}, nullptr},
    {"NoSavedFileNothingDeparts", nullptr, {200, {profile(R"([{"publicApplicationId":"x"}])")}},
     true, {{LOG_DEBUG, PARSE + "Processed 1 URLs, packages: x"}}, "verifyProfilePackages"},
    {"SingleObject", "solo;old", {200, {profile(R"({"publicApplicationId":"solo"})")}}, true,
     {{LOG_DEBUG, PARSE + "Processed 1 URLs, packages: solo"},
      {LOG_DEBUG, VERIFY + "1 items in delete list: old"}}, nullptr},
    {"ElementWithoutIdSkipped", nullptr, {200, {NO_ID}}, true,
     {{LOG_ALERT, PARSE + "Array element [1] doesn't have a 'publicApplicationId' element: " + NO_ID},
      {LOG_DEBUG, PARSE + "Processed 2 URLs, packages: p"}}, nullptr},
    {"ServiceErrorSkipsSavedFile", "a", {500, {R"({"JSONException":{"message":"denied"}})"}}, true,
     {{LOG_ALERT, PARSE + "denied"}}, "verifyProfilePackages"},
    {"UnexpectedTypeHandsOverAllSaved", "a;b", {200, {profile("\"x\"")}}, false,
     {{LOG_DEBUG, PARSE + "'userApps' element has unexpected type [string]"},
      {LOG_DEBUG, VERIFY + "Delete list: a;b"}}, nullptr},
    {"NoUserApps", "a", {200, {NO_APPS}}, false,
     {{LOG_DEBUG, PARSE + "Couldn't find 'userApps' element : " + NO_APPS}}, "verifyProfilePackages"},
};
// clang-format on

class ProfileQuery : public StoreScenario, public ::testing::WithParamInterface<ProfileCase> {};

TEST_P(ProfileQuery, RequestAndReply) {
    const ProfileCase &c = GetParam();
    if (c.saved)
        writeFile(PROFILE_LIST_FILE, c.saved);
    StoreServer store(c.reply);
    startWith(store.url());
    EXPECT_EQ(loadProfilePackageList(handle), c.result);
    for (const LogLine &line : c.lines)
        EXPECT_TRUE(LogCapture::has(line.priority, line.text)) << line.text << LogCapture::dump();
    if (c.absent) {
        EXPECT_FALSE(LogCapture::contains(c.absent)) << LogCapture::dump();
    }
    expectOneRequest(store, "getUserInstalledApps_ext2", BODY);
    // Whatever the reply, a transfer that worked moves the run on to installs and deletes.
    EXPECT_TRUE(LogCapture::contains("beginInstallDelete: ")) << LogCapture::dump();
}

INSTANTIATE_TEST_SUITE_P(Store, ProfileQuery, ::testing::ValuesIn(PROFILE_CASES), core::rowName);

} // namespace
