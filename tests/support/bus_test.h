// Ground for tests that run daemon modules in-process: a private bus (GTestDBus), a root
// directory of their own, captured log lines, a fake clock and an exit that returns.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include <gio/gio.h>

#include "platform/bus.h"
#include "platform/log.h"

struct LogLine {
    int priority;
    std::string text;
    bool operator==(const LogLine &) const = default;
    friend std::ostream &operator<<(std::ostream &out, const LogLine &line) {
        return out << line.priority << ": " << line.text;
    }
};

// What the daemon logged since the test's start or the last clear().
class LogCapture {
  public:
    static inline std::vector<LogLine> captured;
    static void clear() { captured.clear(); }
    static const std::vector<LogLine> &lines() { return captured; }
    static bool has(int priority, const std::string &text);                  // exact line
    static bool hasText(const std::string &text) { return count(text) > 0; } // any priority
    static bool contains(const std::string &fragment);                       // a line containing it
    static int count(const std::string &text);                               // exact lines
    static std::string dump();
};

// The fake host: time moves only when a test or a blocking pause moves it.
struct FakeHost {
    static void install();
    static inline int64_t now = 1700000000;
    static inline std::vector<unsigned> sleeps;
    static inline int exits = 0;
    static inline int lastExitStatus = -1;
    static void advance(int64_t seconds) { now += seconds; }
};

// Iterates the default main context until `done` holds or `timeoutMs` passes.
::testing::AssertionResult waitUntil(const std::function<bool()> &done, const std::string &what,
                                     int timeoutMs = 5000);
// Lets the main loop run for a while, for checks that something does NOT happen.
void spinFor(int milliseconds);

// Pure helpers: their log lines captured, no bus started.
class LogTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override { vyxLogSetSink(nullptr, nullptr); }
};

// Modules that read and write files but need no bus: a root directory of their own and the fake
// host besides the captured log.
class RootTest : public LogTest {
  protected:
    void SetUp() override;
    void TearDown() override;
    std::string root() const { return m_root; }
    std::string rooted(const std::string &absolute) const { return m_root + absolute; }
    void writeFile(const std::string &absolute, const std::string &content) const;
    bool fileExists(const std::string &absolute) const;
    std::string readFile(const std::string &absolute) const;

  private:
    std::string m_root;
};

class BusTest : public RootTest {
  protected:
    void SetUp() override;
    void TearDown() override;

  private:
    GTestDBus *m_bus = nullptr;
};
