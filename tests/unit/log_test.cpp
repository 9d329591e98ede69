// Which lines VYXSTAGED_LOG_LEVEL lets through, on a host and on a device.
#include "platform/log.h"

#include <gtest/gtest.h>
#include <stdlib.h>

namespace {

struct LevelCase {
    const char *name;
    const char *level; // VYXSTAGED_LOG_LEVEL, unset when null
    bool onHost;       // VYXSTAGED_ROOT set
    int lowest;        // the least urgent priority still wanted
};

class LogLevel : public testing::TestWithParam<LevelCase> {};

TEST_P(LogLevel, FormatsOnlyTheWantedLines) {
    const LevelCase &c = GetParam();
    c.level ? setenv("VYXSTAGED_LOG_LEVEL", c.level, 1) : unsetenv("VYXSTAGED_LOG_LEVEL");
    c.onHost ? setenv("VYXSTAGED_ROOT", "/nonexistent", 1) : unsetenv("VYXSTAGED_ROOT");
    std::vector<int> seen, expected;
    vyxLogSetSink([](int priority, const char *,
                     void *seen) { static_cast<std::vector<int> *>(seen)->push_back(priority); },
                  &seen);
    for (int priority = LOG_EMERG; priority <= LOG_DEBUG; priority++) {
        vyxLog(priority, "%d", priority);
        if (priority <= c.lowest)
            expected.push_back(priority);
    }
    vyxLogSetSink(nullptr, nullptr);
    EXPECT_EQ(seen, expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, LogLevel,
    testing::Values(LevelCase{"EverythingOnAHost", nullptr, true, LOG_DEBUG},
                    LevelCase{"EverythingOnADevice", nullptr, false, LOG_DEBUG},
                    LevelCase{"NamedLevel", "err", true, LOG_ERR},
                    LevelCase{"NameInAnyCase", "Warning", false, LOG_WARNING},
                    LevelCase{"MostUrgentOnly", "emerg", true, LOG_EMERG},
                    LevelCase{"UnknownNameKeepsTheDefault", "error", false, LOG_DEBUG}),
    [](const testing::TestParamInfo<LevelCase> &info) { return std::string(info.param.name); });

} // namespace
