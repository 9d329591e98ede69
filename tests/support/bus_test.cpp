#include "bus_test.h"

#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "platform/host.h"

static void captureLine(int priority, const char *line, void *) {
    LogCapture::captured.push_back({priority, line});
}

bool LogCapture::has(int priority, const std::string &text) {
    return std::ranges::count(captured, LogLine{priority, text}) > 0;
}
bool LogCapture::contains(const std::string &fragment) {
    return std::ranges::any_of(
        captured, [&](const LogLine &l) { return l.text.find(fragment) != std::string::npos; });
}
int LogCapture::count(const std::string &text) {
    return static_cast<int>(
        std::ranges::count_if(captured, [&](const LogLine &l) { return l.text == text; }));
}

std::string LogCapture::dump() {
    std::ostringstream out;
    for (const LogLine &line : captured)
        out << "  [" << line.priority << "] " << line.text << "\n";
    return out.str();
}

void FakeHost::install() {
    static const HostSeams seams = {[] { return now; },
                                    [](unsigned seconds) {
                                        sleeps.push_back(seconds);
                                        now += seconds;
                                    },
                                    [](int status) {
                                        exits++;
                                        lastExitStatus = status;
                                    }};
    hostSetSeams(&seams);
}

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

void LogTest::SetUp() {
    setenv("VYXSTAGED_LOG_LEVEL", "debug", 1); // whatever the shell running the tests asks
    vyxLogSetSink(captureLine, nullptr);
    LogCapture::clear();
}

void RootTest::SetUp() {
    LogTest::SetUp();
    g_autofree char *dir = g_dir_make_tmp("vyxtest-XXXXXX", nullptr);
    ASSERT_NE(dir, nullptr);
    m_root = dir;
    setenv("VYXSTAGED_ROOT", m_root.c_str(), 1);
    FakeHost::install();
    FakeHost::sleeps.clear();
    FakeHost::exits = 0;
    FakeHost::lastExitStatus = -1;
}

void RootTest::TearDown() {
    LogTest::TearDown();
    hostSetSeams(nullptr);
    std::error_code ignored; // a test that failed half-way may leave anything behind
    if (!m_root.empty())
        std::filesystem::remove_all(m_root, ignored);
}

void BusTest::SetUp() {
    RootTest::SetUp();
    m_bus = g_test_dbus_new(G_TEST_DBUS_NONE);
    g_test_dbus_up(m_bus);
    setenv("DBUS_SESSION_BUS_ADDRESS", g_test_dbus_get_bus_address(m_bus), 1);
}

void BusTest::TearDown() {
    if (m_bus) {
        g_test_dbus_down(m_bus);
        g_object_unref(m_bus);
    }
    RootTest::TearDown();
}

void RootTest::writeFile(const std::string &absolute, const std::string &content) const {
    std::string path = rooted(absolute);
    g_autofree char *dir = g_path_get_dirname(path.c_str());
    g_mkdir_with_parents(dir, 0755);
    ASSERT_TRUE(g_file_set_contents(path.c_str(), content.data(), content.size(), nullptr));
}

bool RootTest::fileExists(const std::string &absolute) const {
    return g_file_test(rooted(absolute).c_str(), G_FILE_TEST_EXISTS);
}

std::string RootTest::readFile(const std::string &absolute) const {
    g_autofree char *content = nullptr;
    gsize length = 0;
    if (!g_file_get_contents(rooted(absolute).c_str(), &content, &length, nullptr))
        return "";
    return std::string(content, length);
}
