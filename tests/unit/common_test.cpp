// The helpers every module shares: files, payload access, lists, received texts and versions.
#include <glib/gstdio.h>
#include <syslog.h>

#include "bus_test.h"
#include "common/files.h"
#include "common/json_access.h"
#include "common/lists.h"
#include "common/texts.h"
#include "common/version.h"
#include "platform/log.h"

namespace {

using Files = RootTest;

TEST_F(Files, CopyReplacesDestinationWithSourceBytes) {
    std::string binary("role\0file\n\xff", 11);
    writeFile("/src", binary);
    writeFile("/dst", "an older and much longer role file");

    EXPECT_TRUE(prvCopyFile(rooted("/src").c_str(), rooted("/dst").c_str()));
    EXPECT_EQ(readFile("/dst"), binary);
    EXPECT_TRUE(LogCapture::lines().empty());

    writeFile("/empty", "");
    EXPECT_TRUE(prvCopyFile(rooted("/empty").c_str(), rooted("/new").c_str()));
    EXPECT_TRUE(fileExists("/new") && readFile("/new").empty());
}

TEST_F(Files, CopyFailuresAreLoggedAndLeaveDestinationAlone) {
    writeFile("/src", "contents");
    writeFile("/dst", "kept");
    ASSERT_EQ(g_mkdir(rooted("/dir").c_str(), 0755), 0);

    struct Case {
        const char *name;
        std::string source;
        std::string destination;
        std::string line;
    } cases[] = {
        {"null source", "", rooted("/dst"), "prvCopyFile: Invalid parameters"},
        {"unreadable source", rooted("/dir"), rooted("/dst"),
         "prvCopyFile: Can't import source file: " + rooted("/dir") + ", "},
        {"destination dir missing", rooted("/src"), rooted("/nowhere/dst"),
         "prvCopyFile: Can't create destination file: " + rooted("/nowhere/dst") + ", "},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        LogCapture::clear();
        const char *source = c.source.empty() ? nullptr : c.source.c_str();
        const char *destination = c.destination.empty() ? nullptr : c.destination.c_str();
        EXPECT_FALSE(prvCopyFile(source, destination));
        ASSERT_EQ(LogCapture::lines().size(), 1u);
        EXPECT_EQ(LogCapture::lines()[0].priority, LOG_DEBUG);
        // The GLib error message that ends the last two lines is not ours to pin.
        EXPECT_EQ(LogCapture::lines()[0].text.substr(0, c.line.size()), c.line);
        EXPECT_EQ(readFile("/dst"), "kept");
    }
}

// Without a source each copy says so, and the directories are made all the same; the copies
// themselves are met by every provisioning run end to end.
TEST_F(Files, RoleDirectoriesAreMadeEvenWithoutASource) {
    copyRoleFiles();
    EXPECT_EQ(LogCapture::lines(),
              (std::vector<LogLine>{{LOG_DEBUG, "copyRoleFiles: Start"},
                                    {LOG_DEBUG, "prvCopyFile: Source file not found"},
                                    {LOG_DEBUG, "prvCopyFile: Source file not found"}}));
    GStatBuf info;
    ASSERT_EQ(g_stat(rooted("/var/velto/ks2/roles/prv").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0755u);
    EXPECT_TRUE(fileExists("/var/velto/ks2/roles/pub"));
}

TEST(PackageFromApp, StripsAppSuffix) {
    struct Case {
        const char *appId;
        size_t size;
        const char *expected; // null: refused, buffer untouched
    } cases[] = {
        {"com.example.game.APP", 101, "com.example.game"},
        {"x.app", 101, "x"},
        {".app", 101, ".app"}, // too short to carry a suffix
        {"x.apps", 101, "x.apps"},
        {"com.example.gam.app", 8, "com.exa"}, // truncated first, the suffix is then gone
        {"abcde.app", 10, "abcde"},            // fits exactly, so the suffix is still seen
        {"", 101, nullptr},
        {nullptr, 101, nullptr},
        {"com.example", 0, nullptr},
    };
    for (const auto &c : cases) {
        std::string untouched(100, '#');
        char buffer[101];
        strcpy(buffer, untouched.c_str());
        EXPECT_EQ(getPackageFromApp(buffer, c.appId, c.size), c.expected != nullptr)
            << logText(c.appId);
        EXPECT_STREQ(buffer, c.expected ? c.expected : untouched.c_str()) << logText(c.appId);
    }
}

using JsonAccess = LogTest;

const JsonNode *member(const JsonTree &tree, const char *key) {
    return json_find_first_label(tree.get(), key);
}

TEST_F(JsonAccess, GetJsonStringReturnsTextsOfStringsAndNumbersOnly) {
    JsonTree tree = jsonParse(R"({"o":{"s":"a\/b","n":42,"z":null,"t":true,"a":[1]}})");
    const JsonNode *o = member(tree, "o");
    EXPECT_STREQ(getJsonString(o, "s"), "a\\/b");
    EXPECT_STREQ(getJsonString(o, "n"), "42");
    EXPECT_STREQ(getJsonString(o, "missing"), "");
    EXPECT_STREQ(getJsonString(o, "z"), "");
    EXPECT_TRUE(LogCapture::has(
        LOG_DEBUG, "getJsonString: Element for z doesn't exist or isn't a string [null type]"));
    EXPECT_STREQ(getJsonString(o, "t"), "");
    EXPECT_TRUE(LogCapture::hasText(
        "getJsonString: Element for t doesn't exist or isn't a string [boolean:true]"));
    EXPECT_STREQ(getJsonString(nullptr, "s"), "");
    EXPECT_TRUE(LogCapture::has(LOG_DEBUG, "getJsonString: Invalid base element for s"));
}

TEST_F(JsonAccess, FindFirstLabelLogsBadParametersAndNonObjects) {
    JsonTree tree = jsonParse(R"({"arr":[1,2]})");
    EXPECT_EQ(prvJsonFindFirstLabel(tree.get(), nullptr, "caller"), nullptr);
    EXPECT_TRUE(LogCapture::has(LOG_ALERT,
                                "caller: Bad param in call to prvJsonFindFirstLabel: name: NULL"));
    EXPECT_EQ(prvJsonFindFirstLabel(nullptr, "k", nullptr), nullptr);
    EXPECT_TRUE(LogCapture::has(
        LOG_ALERT, "prvJsonFindFirstLabel: Bad param in call to prvJsonFindFirstLabel: name: k"));
    EXPECT_EQ(prvJsonFindFirstLabel(member(tree, "arr")->child, "k", "caller"), nullptr);
    EXPECT_TRUE(LogCapture::has(
        LOG_DEBUG,
        "caller: Invalid element type of array in call to prvJsonFindFirstLabel: name: k"));
}

TEST_F(JsonAccess, OnlyTheNotRunningReplyOfTheNamedServiceIsIgnored) {
    struct Case {
        const char *reply;
        bool ignored;
        const char *logLine; // what explains the decision, if anything
    } cases[] = {
        {R"({"returnValue":false,"errorCode":-1,"errorText":"com.x is not running.","serviceName":"com.x"})",
         true, "cb: Ignoring response (errorText: com.x is not running.)"},
        {R"({"returnValue":false,"errorCode":-2,"errorText":"com.x is not running.","serviceName":"com.x"})",
         false, "cb: Unexpected value in errorCode: -2"},
        {R"({"returnValue":false,"errorCode":"-1","errorText":"com.x is not running.","serviceName":"com.x"})",
         false, "cb: Unexpected value in errorCode: -1"},
        {R"({"returnValue":false,"errorCode":-1,"errorText":"Service com.x is not running.","serviceName":"com.x"})",
         false,
         "cb: errorText [Service com.x is not running.] doesn't start with [com.x is not running]"},
        {R"({"returnValue":false,"errorCode":-1,"errorText":"com.x is not running."})", false,
         nullptr},
        {R"({"returnValue":true,"errorCode":-1,"errorText":"com.x is not running.","serviceName":"com.x"})",
         false, nullptr},
        {R"({"returnValue":false,"errorCode":-1,"errorText":"com.x is not running.","serviceName":7})",
         false, nullptr},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.reply);
        LogCapture::clear();
        JsonTree tree = jsonParse(c.reply);
        ASSERT_TRUE(tree);
        EXPECT_EQ(ignoreJsonResponse(tree.get(), "cb"), c.ignored);
        if (c.logLine) {
            EXPECT_TRUE(LogCapture::has(LOG_DEBUG, c.logLine)) << LogCapture::dump();
        }
    }
}

// Appending to lists is met by every list a run builds and logs (the key files' lists and the
// delete list, the changed packages, the accepted installs); only the count-bounded search is here.
TEST(Lists, FindInStringArrayIsBoundedByCount) {
    g_auto(GStrv) array = g_strsplit("com.a;com.b;com.a;com.c;", ";", -1);
    struct Case {
        int count;
        const char *string;
        int expected;
    } cases[] = {
        {4, "com.a", 0},                    // the first of two
        {4, "com.c", 3},  {3, "com.c", -1}, // beyond the owner's count
        {4, "COM.A", -1},                   // case-sensitive
        {4, "com", -1},   {4, nullptr, -1},
        {5, "", -1},                        // an empty name is never found, not even an empty entry
        {0, "com.a", -1}, {9, "com.x", -1}, // an overstated count must not read past the terminator
    };
    for (const auto &c : cases)
        EXPECT_EQ(prvFindInStringArray(array, c.count, c.string), c.expected)
            << logText(c.string) << " in " << c.count;
    EXPECT_EQ(prvFindInStringArray(nullptr, 4, "com.a"), -1);
}

constexpr size_t SIZE = 11; // room for 10 bytes

std::string cut(const char *src, size_t size = SIZE) {
    char dest[SIZE + 1];
    copyReceivedText(dest, src, size);
    return dest;
}

// Every kind of piece, placed at each offset from well before the limit to right at it: the
// piece is kept whole when it fits and dropped whole when it does not, and what is kept parses.
TEST(Texts, CutNeverSplitsAnEscapeOrACharacter) {
    const std::string pieces[] = {"\\\"",           "\\\\",     "\\n",          "\\u00e9",
                                  "\\ud83d\\ude00", "\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x98\x80"};
    const std::string filler(SIZE, 'b');
    for (const std::string &piece : pieces)
        for (size_t offset = 0; offset < SIZE; offset++) {
            std::string head(offset, 'a');
            std::string expected = head;
            if (offset + piece.size() < SIZE)
                expected = (head + piece + filler).substr(0, SIZE - 1);
            std::string result = cut((head + piece + filler).c_str());
            EXPECT_EQ(result, expected) << piece << " at " << offset;
            EXPECT_TRUE(jsonParse(("\"" + result + "\"").c_str())) << result;
        }
}

TEST(Texts, EdgesOfTheSourceAndTheSize) {
    const struct {
        const char *src;
        size_t size;
        const char *expected;
    } cases[] = {
        {nullptr, SIZE, ""},
        {"abc", 1, ""},
        {"abc\\", SIZE, "abc"},               // a lone backslash at the end never stays
        {"ab\\u00e", SIZE, "ab"},             // nor an escape the source ends inside
        {"\\\\\\\"", 4, "\\\\"},              // an escaped backslash, then an escaped quote
        {"ab\\ud83d\\u0041", 9, "ab\\ud83d"}, // a high half without its low half is one piece
        {"a\xff\xc3z", SIZE, "a\xff\xc3z"},   // bytes that are no UTF-8 go as they are
    };
    for (const auto &c : cases)
        EXPECT_EQ(cut(c.src, c.size), c.expected) << (c.src ? c.src : "(null)") << " " << c.size;
    char untouched[] = "keep";
    copyReceivedText(untouched, "x", 0);
    EXPECT_STREQ(untouched, "keep");
}

using VersionCompare = LogTest;

// Missing and empty rank lowest; undotted versions compare as text in any case and rank below
// dotted ones; components compare as numbers (saturated, never wrapping), a missing one ranking
// lower, then as texts.
TEST_F(VersionCompare, RanksVersionsBySignAndLogsEachComparison) {
    struct Case {
        const char *a, *b;
        int expected; // sign only
    } cases[] = {{nullptr, "1.0", -1}, {"", nullptr, 1},    {"", "1", -1},
                 {"abc", "ABC", 0},    {"9", "10", 1},      {"5", "1.0", -1},
                 {"1.0", "5", 1},      {"1.10", "1.9", 1},  {"2.0", "10.0", -1},
                 {"1.2", "1.2.0", -1}, {"1.2.0", "1.2", 1}, {"1.0", "1.00", -1},
                 {"1.2B", "1.2b", 0},  {"1.x", "1.0", 1}};
    for (const auto &c : cases) {
        int result = versionCompare(c.a, c.b);
        EXPECT_EQ((result > 0) - (result < 0), c.expected)
            << "versionCompare(" << logText(c.a) << ", " << logText(c.b) << ")";
    }
    EXPECT_GT(versionCompare("1.99999999999", "1.1"), 0);
    EXPECT_GT(versionCompare("1.2147483647", "1.-2147483648"), 0);
    EXPECT_TRUE(LogCapture::has(LOG_DEBUG, "versionCompare: Compare(1.10,1.9)=1"));
    EXPECT_TRUE(LogCapture::has(LOG_DEBUG, "versionCompare: Compare(NULL,1.0)=-1"));
}

} // namespace
