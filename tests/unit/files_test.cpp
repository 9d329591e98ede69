#include "common/files.h"

#include <glib/gstdio.h>
#include <syslog.h>

#include "bus_test.h"
#include "platform/log.h"

namespace {

using Lines = std::vector<LogLine>;

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
        {"null destination", rooted("/src"), "", "prvCopyFile: Invalid parameters"},
        {"missing source", rooted("/missing"), rooted("/dst"),
         "prvCopyFile: Source file not found"},
        {"unreadable source", rooted("/dir"), rooted("/dst"),
         "prvCopyFile: Can't import source file: " + rooted("/dir") + ", "},
        {"destination dir missing", rooted("/src"), rooted("/nowhere/dst"),
         "prvCopyFile: Can't create destination file: " + rooted("/nowhere/dst") + ", "},
    };
    for (const auto &c : cases) {
        LogCapture::clear();
        const char *source = c.source.empty() ? nullptr : c.source.c_str();
        const char *destination = c.destination.empty() ? nullptr : c.destination.c_str();
        EXPECT_FALSE(prvCopyFile(source, destination)) << c.name;
        const Lines &lines = LogCapture::lines();
        ASSERT_EQ(lines.size(), 1u) << c.name;
        EXPECT_EQ(lines[0].priority, LOG_DEBUG) << c.name;
        // The GLib error message that ends the last two lines is not ours to pin.
        EXPECT_TRUE(g_str_has_prefix(lines[0].text.c_str(), c.line.c_str()))
            << c.name << ": " << lines[0].text;
        EXPECT_EQ(readFile("/dst"), "kept") << c.name;
    }
    EXPECT_FALSE(fileExists("/nowhere/dst"));
}

// Without a source each copy says so, and the directories are made all the same; the copies
// themselves are met by every provisioning run end to end.
TEST_F(Files, RoleDirectoriesAreMadeEvenWithoutASource) {
    copyRoleFiles();
    EXPECT_EQ(LogCapture::lines(), (Lines{{LOG_DEBUG, "copyRoleFiles: Start"},
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
        {"com.example.game.app", 101, "com.example.game"},
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
    EXPECT_FALSE(getPackageFromApp(nullptr, "com.example", 101));
}

} // namespace
