#include "common/files.h"

#include <glib/gstdio.h>
#include <syslog.h>

#include "bus_test.h"
#include "platform/log.h"

namespace {

using Lines = std::vector<LogLine>;

// Paths under the test's root, as the copy is given them.
class Files : public RootTest {
  protected:
    std::string path(const char *relative) { return rooted(std::string("/") + relative); }
    void write(const char *relative, const std::string &contents) {
        writeFile(std::string("/") + relative, contents);
    }
    std::string read(const char *relative) { return readFile(std::string("/") + relative); }
};

TEST_F(Files, CopyReplacesDestinationWithSourceBytes) {
    std::string binary("role\0file\n\xff", 11);
    write("src", binary);
    write("dst", "an older and much longer role file");

    EXPECT_TRUE(prvCopyFile(path("src").c_str(), path("dst").c_str()));
    EXPECT_EQ(read("dst"), binary);
    EXPECT_TRUE(LogCapture::lines().empty());

    write("empty", "");
    EXPECT_TRUE(prvCopyFile(path("empty").c_str(), path("new").c_str()));
    EXPECT_TRUE(fileExists("/new"));
    EXPECT_EQ(read("new"), "");
}

TEST_F(Files, CopyFailuresAreLoggedAndLeaveDestinationAlone) {
    write("src", "contents");
    write("dst", "kept");
    ASSERT_EQ(g_mkdir(path("dir").c_str(), 0755), 0);

    struct Case {
        const char *name;
        std::string source;
        std::string destination;
        std::string line;
    } cases[] = {
        {"null source", "", path("dst"), "prvCopyFile: Invalid parameters"},
        {"null destination", path("src"), "", "prvCopyFile: Invalid parameters"},
        {"missing source", path("missing"), path("dst"), "prvCopyFile: Source file not found"},
        {"unreadable source", path("dir"), path("dst"),
         "prvCopyFile: Can't import source file: " + path("dir") + ", "},
        {"destination dir missing", path("src"), path("nowhere/dst"),
         "prvCopyFile: Can't create destination file: " + path("nowhere/dst") + ", "},
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
        EXPECT_EQ(read("dst"), "kept") << c.name;
    }
    EXPECT_FALSE(fileExists("/nowhere/dst"));
}

TEST_F(Files, RoleFileGoesToBothRoleDirectoriesUnderRoot) {
    // Without a source each copy says so; the directories are made all the same.
    copyRoleFiles();
    EXPECT_EQ(LogCapture::lines(), (Lines{{LOG_DEBUG, "copyRoleFiles: Start"},
                                          {LOG_DEBUG, "prvCopyFile: Source file not found"},
                                          {LOG_DEBUG, "prvCopyFile: Source file not found"}}));
    GStatBuf info;
    ASSERT_EQ(g_stat(path("var/velto/ks2/roles/prv").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0755u);

    // A stale copy is replaced.
    write("usr/velto/vyxstage/com.velto.vyx.service.json", "{\"role\":1}");
    write("var/velto/ks2/roles/pub/com.velto.vyx.service.json", "stale");
    LogCapture::clear();
    copyRoleFiles();
    EXPECT_EQ(read("var/velto/ks2/roles/prv/com.velto.vyx.service.json"), "{\"role\":1}");
    EXPECT_EQ(read("var/velto/ks2/roles/pub/com.velto.vyx.service.json"), "{\"role\":1}");
    EXPECT_EQ(LogCapture::lines(), (Lines{{LOG_DEBUG, "copyRoleFiles: Start"}}));
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
        char buffer[101];
        memset(buffer, '#', sizeof buffer);
        buffer[100] = '\0';
        std::string untouched = buffer;
        EXPECT_EQ(getPackageFromApp(buffer, c.appId, c.size), c.expected != nullptr)
            << logText(c.appId);
        EXPECT_STREQ(buffer, c.expected ? c.expected : untouched.c_str()) << logText(c.appId);
    }
    EXPECT_FALSE(getPackageFromApp(nullptr, "com.example", 101));
}

} // namespace
