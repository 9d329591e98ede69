#include "common/files.h"

#include <gtest/gtest.h>

#include <glib.h>
#include <glib/gstdio.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "platform/log.h"

namespace {

struct LogLine {
    int priority;
    std::string text;
    bool operator==(const LogLine &) const = default;
};

std::ostream &operator<<(std::ostream &out, const LogLine &line) {
    return out << line.priority << ": " << line.text;
}

class Files : public ::testing::Test {
  protected:
    void SetUp() override {
        root_ = g_dir_make_tmp("vyxfiles-XXXXXX", nullptr);
        ASSERT_NE(root_, nullptr);
        setenv("VYXSTAGED_ROOT", root_, 1);
        vyxLogSetSink(
            [](int priority, const char *line, void *context) {
                static_cast<Files *>(context)->lines_.push_back({priority, line});
            },
            this);
    }
    void TearDown() override {
        vyxLogSetSink(nullptr, nullptr);
        unsetenv("VYXSTAGED_ROOT");
        g_autofree char *command = g_strdup_printf("rm -rf '%s'", root_);
        EXPECT_EQ(system(command), 0);
        g_free(root_);
    }

    std::string path(const char *relative) { return std::string(root_) + "/" + relative; }

    void write(const std::string &file, const std::string &contents) {
        g_autofree char *dir = g_path_get_dirname(file.c_str());
        ASSERT_EQ(g_mkdir_with_parents(dir, 0755), 0);
        ASSERT_TRUE(g_file_set_contents(file.c_str(), contents.data(),
                                        static_cast<gssize>(contents.size()), nullptr));
    }

    std::string read(const std::string &file) {
        g_autofree char *contents = nullptr;
        gsize length = 0;
        if (!g_file_get_contents(file.c_str(), &contents, &length, nullptr))
            return "<missing>";
        return std::string(contents, length);
    }

    char *root_ = nullptr;
    std::vector<LogLine> lines_;
};

TEST_F(Files, CopyReplacesDestinationWithSourceBytes) {
    std::string binary("role\0file\n\xff", 11);
    write(path("src"), binary);
    write(path("dst"), "an older and much longer role file");

    EXPECT_TRUE(prvCopyFile(path("src").c_str(), path("dst").c_str()));
    EXPECT_EQ(read(path("dst")), binary);
    EXPECT_TRUE(lines_.empty());

    write(path("empty"), "");
    EXPECT_TRUE(prvCopyFile(path("empty").c_str(), path("new").c_str()));
    EXPECT_EQ(read(path("new")), "");
}

TEST_F(Files, CopyFailuresAreLoggedAndLeaveDestinationAlone) {
    write(path("src"), "contents");
    write(path("dst"), "kept");
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
        lines_.clear();
        const char *source = c.source.empty() ? nullptr : c.source.c_str();
        const char *destination = c.destination.empty() ? nullptr : c.destination.c_str();
        EXPECT_FALSE(prvCopyFile(source, destination)) << c.name;
        ASSERT_EQ(lines_.size(), 1u) << c.name;
        EXPECT_EQ(lines_[0].priority, LOG_DEBUG) << c.name;
        // The GLib error message that ends the last two lines is not ours to pin.
        EXPECT_TRUE(g_str_has_prefix(lines_[0].text.c_str(), c.line.c_str()))
            << c.name << ": " << lines_[0].text;
        EXPECT_EQ(read(path("dst")), "kept") << c.name;
    }
    EXPECT_EQ(read(path("nowhere/dst")), "<missing>");
}

TEST_F(Files, RoleFileGoesToBothRoleDirectoriesUnderRoot) {
    write(path("usr/velto/vyxstage/com.velto.vyx.service.json"), "{\"role\":1}");
    // The public directory exists with a stale copy; the private one is made on the way.
    write(path("var/velto/ks2/roles/pub/com.velto.vyx.service.json"), "stale");

    copyRoleFiles();

    EXPECT_EQ(read(path("var/velto/ks2/roles/prv/com.velto.vyx.service.json")), "{\"role\":1}");
    EXPECT_EQ(read(path("var/velto/ks2/roles/pub/com.velto.vyx.service.json")), "{\"role\":1}");
    GStatBuf info;
    ASSERT_EQ(g_stat(path("var/velto/ks2/roles/prv").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0755u);
    EXPECT_EQ(lines_, (std::vector<LogLine>{{LOG_DEBUG, "copyRoleFiles: Start"}}));
}

TEST_F(Files, MissingRoleFileIsLoggedForEachDirectory) {
    copyRoleFiles();

    EXPECT_EQ(lines_, (std::vector<LogLine>{{LOG_DEBUG, "copyRoleFiles: Start"},
                                            {LOG_DEBUG, "prvCopyFile: Source file not found"},
                                            {LOG_DEBUG, "prvCopyFile: Source file not found"}}));
    EXPECT_TRUE(g_file_test(path("var/velto/ks2/roles/prv").c_str(), G_FILE_TEST_IS_DIR));
    EXPECT_TRUE(g_file_test(path("var/velto/ks2/roles/pub").c_str(), G_FILE_TEST_IS_DIR));
}

TEST(PackageFromApp, StripsAppSuffix) {
    struct Case {
        const char *appId;
        size_t size;
        const char *expected; // null: refused, buffer untouched
    } cases[] = {
        {"com.example.game.APP", 101, "com.example.game"},
        {"com.example.game.app", 101, "com.example.game"},
        {"com.example.game", 101, "com.example.game"},
        {"x.app", 101, "x"},
        {".app", 101, ".app"}, // too short to carry a suffix
        {"x.apps", 101, "x.apps"},
        {"com.example.app.game", 101, "com.example.app.game"},
        {"com.example.gam.app", 8, "com.exa"}, // truncated first, the suffix is then gone
        {"abcde.app", 10, "abcde"},            // fits exactly, so the suffix is still seen
        {"abcde.app", 9, "abcde.ap"},
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
