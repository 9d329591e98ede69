// The package detail query against a real HTTP server: what the store receives, how each kind of
// reply is read, and the install request built from it; the installed-package lookup.
#include "store/app_detail.h"
#include "store_fixture.h"

using namespace std::string_literals;

namespace {

const char BODY[] = "{'InGetAppDetailV2':{'accountTokenInfo':{'token':'tok','deviceId':'dev-1',"
                    "'email':'a@b.c'},'packageId':'com.x','locale':'en_US' } }";

std::string offer(const char *version, const char *more = "") {
    return R"({"OutGetAppDetailV2":{"appDetail":{"version":")"s + version + "\"" + more + "}}}";
}

// The install request for an offer that names nothing but its version; the end-to-end runs
// pin the request built from a whole offer.
const char BARE[] = "{'catalogId':0,'id':'','title':'','version':'1.0.2','vendor':0,'vendorUrl':'',"
                    "'iconUrl':'','ipkUrl':'','authToken':'tok','deviceId':'dev-1'}";

struct DetailCase {
    const char *name;
    const char *installed;
    StoreReply reply;
    struct {
        bool result, found; // found starts false
        int size;           // starts -1
    } outcome;
    std::string payload; // "" for none
    LogLine line;        // an empty text for none
    friend void PrintTo(const DetailCase &c, std::ostream *os) { *os << c.name; }
};

const std::string CURRENT = "parseBazaroResponse: Bazaro returned info for [com.x], version: ";
const char NO_DETAIL[] = R"({"OutGetAppDetailV2":{"detail":{}}})";

// clang-format off
const DetailCase DETAIL_CASES[] = {
    {"InstalledNewerIsKept", "2.0", {200, {offer("1.9")}}, {true, true, 0}, "",
     {LOG_DEBUG, CURRENT + "1.9, local copy is current"}},
    {"OlderInstalledGetsUpdate", "1.0.1", {200, {offer("1.0.2", R"(,"appSize":"678")")}},
     {true, true, 678}, BARE, {}},
    {"NoAppDetail", "", {200, {NO_DETAIL}}, {false, true, -1}, "",
     {LOG_ALERT, "parseBazaroResponse: [com.x] Couldn't find 'appDetail': "s + NO_DETAIL}},
    {"NoVersionStillGivesSize", "", {200, {R"({"OutGetAppDetailV2":{"appDetail":{"appSize":5}}})"}},
     {false, true, 5}, "", {}},
    {"NulByteEndsItsChunkOnly", "", {200, {R"({"JSONException":)", "{\"message\":\"gone\"\0x"s, "}}"}},
     {true, false, -1}, "", {LOG_ALERT, "parseBazaroResponse: [com.x] gone"}},
};
// clang-format on

class DetailQuery : public StoreScenario, public ::testing::WithParamInterface<DetailCase> {};

TEST_P(DetailQuery, RequestAndReply) {
    const DetailCase &c = GetParam();
    StoreServer store(c.reply);
    startWith(store.url());
    bool found = false;
    char *payload = nullptr;
    int32_t size = -1;
    EXPECT_EQ(checkBazaro(handle, "com.x", c.installed, &found, &payload, &size), c.outcome.result);
    g_autofree char *owned = payload;
    EXPECT_EQ(found, c.outcome.found);
    EXPECT_EQ(size, c.outcome.size);
    EXPECT_EQ(payload ? payload : "", c.payload);
    if (!c.line.text.empty()) {
        EXPECT_TRUE(LogCapture::has(c.line.priority, c.line.text)) << LogCapture::dump();
    }

    expectOneRequest(store, "appDetail_ext2", BODY);
}

INSTANTIATE_TEST_SUITE_P(Store, DetailQuery, ::testing::ValuesIn(DETAIL_CASES), core::rowName);

TEST_F(StoreScenario, InstalledPackagesAreFoundByTheirExactIdOnly) {
    const std::string longVersion(150, '9');
    startWith("http://127.0.0.1:1/", R"({"apps":[{"id":"com.ab","version":"1.0"},{"id":"com.c"},)"
                                     R"({"id":"com.long","version":")" +
                                         longVersion + "\"}]}");
    const struct {
        const char *id;
        bool exists;
        std::string version;
    } lookups[] = {{"com.a", false, ""},
                   {"com.ab", true, "1.0"},
                   {"com.c", true, ""},
                   {"com.long", true, longVersion.substr(0, 99)}};
    for (const auto &lookup : lookups) {
        char version[100] = "stale";
        EXPECT_EQ(doesPackageExist(lookup.id, version), lookup.exists) << lookup.id;
        EXPECT_EQ(version, lookup.version) << lookup.id;
    }
    EXPECT_TRUE(LogCapture::has(
        LOG_DEBUG, "doesPackageExist: Name [com.a] is not found after checking 3 apps"));
}

TEST_F(StoreScenario, InstalledPackagesListingMayNameThemPackages) {
    startWith("http://127.0.0.1:1/", R"({"packages":[{"id":"com.p","version":"3"}]})");
    char version[100] = "";
    EXPECT_TRUE(doesPackageExist("com.p", version));
    EXPECT_STREQ(version, "3");
}

} // namespace
