#include "bus_test.h"

#include <glib/gstdio.h>
#include <stdlib.h>

#include <sstream>

#include "platform/host.h"
#include "platform/log.h"

// ---------------------------------------------------------------------------------------------
// Log capture

static std::vector<LogLine> s_lines;

static void captureLine(int priority, const char *line, void *) {
    s_lines.push_back({priority, line});
}

void LogCapture::install() {
    vyxLogSetSink(captureLine, nullptr);
}
void LogCapture::clear() {
    s_lines.clear();
}
const std::vector<LogLine> &LogCapture::lines() {
    return s_lines;
}

bool LogCapture::has(int priority, const std::string &text) {
    for (const LogLine &line : s_lines)
        if (line.priority == priority && line.text == text)
            return true;
    return false;
}

bool LogCapture::hasText(const std::string &text) {
    for (const LogLine &line : s_lines)
        if (line.text == text)
            return true;
    return false;
}

bool LogCapture::contains(const std::string &fragment) {
    for (const LogLine &line : s_lines)
        if (line.text.find(fragment) != std::string::npos)
            return true;
    return false;
}

int LogCapture::count(const std::string &text) {
    int n = 0;
    for (const LogLine &line : s_lines)
        n += line.text == text;
    return n;
}

std::string LogCapture::dump() {
    std::ostringstream out;
    for (const LogLine &line : s_lines)
        out << "  [" << line.priority << "] " << line.text << "\n";
    return out.str();
}

// ---------------------------------------------------------------------------------------------
// Fake host

int64_t FakeHost::now = 1700000000;
std::vector<unsigned> FakeHost::sleeps;
int FakeHost::exits = 0;
int FakeHost::lastExitStatus = -1;

static int64_t fakeNow() {
    return FakeHost::now;
}
static void fakeSleep(unsigned seconds) {
    FakeHost::sleeps.push_back(seconds);
    FakeHost::now += seconds;
}
static void fakeExit(int status) {
    FakeHost::exits++;
    FakeHost::lastExitStatus = status;
}

void FakeHost::install() {
    static const HostSeams seams = {fakeNow, fakeSleep, fakeExit};
    hostSetSeams(&seams);
}

// ---------------------------------------------------------------------------------------------
// Main loop helpers

static gboolean setFlag(gpointer data) {
    *static_cast<bool *>(data) = true;
    return G_SOURCE_REMOVE;
}

::testing::AssertionResult waitUntil(const std::function<bool()> &done, const std::string &what,
                                     int timeoutMs) {
    bool expired = false;
    guint timeout = g_timeout_add(timeoutMs, setFlag, &expired);
    while (!done() && !expired)
        g_main_context_iteration(nullptr, TRUE);
    if (!expired)
        g_source_remove(timeout);
    if (done())
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << "timed out after " << timeoutMs << " ms waiting for: " << what << "\nlog:\n"
           << LogCapture::dump();
}

void spinFor(int milliseconds) {
    bool expired = false;
    g_timeout_add(milliseconds, setFlag, &expired);
    while (!expired)
        g_main_context_iteration(nullptr, TRUE);
}

// ---------------------------------------------------------------------------------------------
// Fixture

void BusTest::SetUp() {
    g_autofree char *dir = g_dir_make_tmp("vyxtest-XXXXXX", nullptr);
    ASSERT_NE(dir, nullptr);
    m_root = dir;
    setenv("VYXSTAGED_ROOT", m_root.c_str(), 1);

    m_bus = g_test_dbus_new(G_TEST_DBUS_NONE);
    g_test_dbus_up(m_bus);
    setenv("DBUS_SESSION_BUS_ADDRESS", g_test_dbus_get_bus_address(m_bus), 1);

    LogCapture::install();
    LogCapture::clear();
    FakeHost::install();
    FakeHost::sleeps.clear();
    FakeHost::exits = 0;
    FakeHost::lastExitStatus = -1;
}

static void removeTree(const std::string &path) {
    GDir *dir = g_dir_open(path.c_str(), 0, nullptr);
    if (dir) {
        while (const char *name = g_dir_read_name(dir)) {
            std::string child = path + "/" + name;
            if (g_file_test(child.c_str(), G_FILE_TEST_IS_DIR) &&
                !g_file_test(child.c_str(), G_FILE_TEST_IS_SYMLINK))
                removeTree(child);
            else
                g_unlink(child.c_str());
        }
        g_dir_close(dir);
    }
    g_rmdir(path.c_str());
}

void BusTest::TearDown() {
    if (m_bus) {
        g_test_dbus_down(m_bus);
        g_object_unref(m_bus);
    }
    vyxLogSetSink(nullptr, nullptr);
    hostSetSeams(nullptr);
    if (!m_root.empty())
        removeTree(m_root);
}

void BusTest::writeFile(const std::string &absolute, const std::string &content) const {
    std::string path = rooted(absolute);
    g_autofree char *dir = g_path_get_dirname(path.c_str());
    g_mkdir_with_parents(dir, 0755);
    ASSERT_TRUE(g_file_set_contents(path.c_str(), content.data(), content.size(), nullptr));
}

bool BusTest::fileExists(const std::string &absolute) const {
    return g_file_test(rooted(absolute).c_str(), G_FILE_TEST_EXISTS);
}

std::string BusTest::readFile(const std::string &absolute) const {
    g_autofree char *content = nullptr;
    gsize length = 0;
    if (!g_file_get_contents(rooted(absolute).c_str(), &content, &length, nullptr))
        return "";
    return std::string(content, length);
}
