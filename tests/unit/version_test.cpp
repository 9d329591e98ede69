#include "common/version.h"

#include "bus_test.h"
#include "platform/log.h"

namespace {

int sign(int value) {
    return (value > 0) - (value < 0);
}

class VersionCompare : public LogTest {};

TEST_F(VersionCompare, RanksVersionsBySignAndLogsEachComparison) {
    struct Case {
        const char *a, *b;
        int expected; // sign only
    } cases[] = {
        {nullptr, "1.0", -1}, {"", nullptr, 1},   {"", "1", -1}, // missing and empty rank lowest
        {"abc", "ABC", 0},    {"9", "10", 1},                     // undotted: text, any case
        {"5", "1.0", -1},     {"1.0", "5", 1},                    // dotted above undotted
        {"1.10", "1.9", 1},   {"2.0", "10.0", -1},                // components as numbers
        {"1.2", "1.2.0", -1}, {"1.2.0", "1.2", 1},                // a missing component ranks lower
        {"1.0", "1.00", -1},  {"1.2B", "1.2b", 0}, {"1.x", "1.0", 1}, // then component texts
        {"1.99999999999", "1.1", 1}, {"1.2147483647", "1.-2147483648", 1}, // saturated, no wrap
    };
    for (const auto &c : cases)
        EXPECT_EQ(sign(versionCompare(c.a, c.b)), c.expected)
            << "versionCompare(" << logText(c.a) << ", " << logText(c.b) << ")";
    EXPECT_TRUE(LogCapture::has(LOG_DEBUG, "versionCompare: Compare(1.10,1.9)=1"));
    EXPECT_TRUE(LogCapture::has(LOG_DEBUG, "versionCompare: Compare(NULL,1.0)=-1"));
}

} // namespace
