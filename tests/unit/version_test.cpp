#include "common/version.h"

#include "bus_test.h"
#include "platform/log.h"

namespace {

int sign(int value) {
    return (value > 0) - (value < 0);
}

TEST(VersionCompare, RanksVersionsBySign) {
    struct Case {
        const char *a;
        const char *b;
        int expected; // sign only
    } cases[] = {
        // Missing and empty versions rank lowest.
        {nullptr, nullptr, 0},
        {nullptr, "1.0", -1},
        {"1.0", nullptr, 1},
        {nullptr, "", -1},
        {"", nullptr, 1},
        {"", "", 0},
        {"", "1", -1},
        {"1", "", 1},
        // Undotted against undotted: text, ignoring case.
        {"5", "5", 0},
        {"abc", "ABC", 0},
        {"9", "10", 1},
        // A dotted version ranks above an undotted one.
        {"5", "1.0", -1},
        {"1.0", "5", 1},
        // Components compare as numbers first.
        {"1.10", "1.9", 1},
        {"1.9", "1.10", -1},
        {"2.0", "10.0", -1},
        {"1.2.3", "1.2.3", 0},
        {"1.2.4", "1.2.3", 1},
        // A missing component ranks lower.
        {"1.2", "1.2.0", -1},
        {"1.2.0", "1.2", 1},
        // Equal numbers: the component texts decide.
        {"1.0", "1.00", -1},
        {"1.2a", "1.2b", -1},
        {"1.2B", "1.2b", 0},
        {"1.2b", "1.2A", 1},
        {"1.x", "1.0", 1},     // no digits reads as 0, then "x" > "0"
        {"1. 7", "1.6", 1},    // leading blanks are skipped
        {"1.-1", "1.0", -1},   // and a sign is read
        {"1..2", "1.0.2", -1}, // an empty component reads as 0 and sorts first as text
        // Out-of-range components saturate instead of wrapping around.
        {"1.99999999999", "1.1", 1},
        {"1.2147483647", "1.-2147483648", 1},
        {"1.-99999999999", "1.1", -1},
    };
    for (const auto &c : cases)
        EXPECT_EQ(sign(versionCompare(c.a, c.b)), c.expected)
            << "versionCompare(" << logText(c.a) << ", " << logText(c.b) << ")";
}

TEST(VersionCompare, LogsEveryComparison) {
    LogCapture::install();
    LogCapture::clear();
    versionCompare("1.10", "1.9");
    versionCompare(nullptr, "2.0");
    versionCompare("a", "b");
    vyxLogSetSink(nullptr, nullptr);
    EXPECT_EQ(LogCapture::lines(),
              (std::vector<LogLine>{{LOG_DEBUG, "versionCompare: Compare(1.10,1.9)=1"},
                                    {LOG_DEBUG, "versionCompare: Compare(NULL,2.0)=-1"},
                                    {LOG_DEBUG, "versionCompare: Compare(a,b)=-1"}}));
}

} // namespace
