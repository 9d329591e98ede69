#include "status/run_history.h"

#include "bus_test.h"
#include "platform/json.h"

namespace {

using RunHistory = RootTest;
const char HISTORY[] = "/var/usr/velto/vyxstaged-runs.json";
const char DAMAGED[] = "runHistoryLoad: Damaged run history, starting afresh: ";

TEST_F(RunHistory, DamagedFileCountsAsEmptyWithOneLine) {
    struct Case {
        const char *contents; // nullptr: no file
        size_t records;
    } cases[] = {
        {nullptr, 0},
        {"", 0},
        {"{\"runs\":[{\"outcome\":\"failed\"}", 0}, // cut off by a full disk, say
        {"[]", 0},
        {"{\"runs\":{}}", 0},
        {"{\"runs\":[{\"outcome\":\"failed\"},7]}", 1},
    };
    for (const Case &c : cases) {
        if (c.contents)
            writeFile(HISTORY, c.contents);
        EXPECT_EQ(runHistoryLoad().size(), c.records) << c.contents;
    }
    // Once, however often it is read: every runStatus between runs reads it.
    EXPECT_EQ(LogCapture::count(DAMAGED + rooted(HISTORY)), 1) << LogCapture::dump();
    // A damaged file is replaced by the next run's record.
    writeFile(HISTORY, "{");
    ASSERT_TRUE(runHistoryAppend("{\"reason\":\"a\"}"));
    EXPECT_EQ(runHistoryLoad().size(), 1u);
}

TEST_F(RunHistory, KeepsTheLastTwentyWithTextsEscaped) {
    for (int i = 0; i < 25; ++i) {
        std::string reason = "run " + std::to_string(i) + " \"quoted\"\n\x01 \xff";
        ASSERT_TRUE(runHistoryAppend("{\"reason\":" + jsonQuoted(reason.c_str()) + "}"));
    }
    std::vector<std::string> records = runHistoryLoad();
    ASSERT_EQ(records.size(), 20u);
    EXPECT_EQ(records.front(), R"({"reason":"run 5 \"quoted\"\n\u0001 �"})");
    EXPECT_NE(records.back().find("run 24 "), std::string::npos);
    EXPECT_TRUE(LogCapture::lines().empty()) << LogCapture::dump();
}

TEST_F(RunHistory, LeftoversOfTheDaemonsOwnWritesAreRemoved) {
    struct Case {
        const char *path;
        bool leftover;
    } cases[] = {
        {"/var/velto/ks2/roles/prv/com.velto.vyx.service.json.XYZ789", true},
        {"/var/usr/velto/vyxstageprofile.list.q1W2e3", true},
        {"/var/usr/velto/vyxstage.conf.aaaaaa", true},
        {"/var/velto/ks2/roles/pub/com.velto.vyx.service.json", false},
        {"/var/velto/ks2/roles/pub/com.velto.vyx.service.json.Ab12C", false},
        {"/var/velto/ks2/roles/pub/com.velto.vyx.service.json.Ab-12C", false},
        {"/var/velto/ks2/roles/pub/com.velto.other.json.Ab12Cd", false},
        {"/var/usr/velto/vyxstage.conf.bak", false},
    };
    for (const Case &c : cases)
        writeFile(c.path, "x");
    removeWriteLeftovers();
    for (const Case &c : cases) {
        EXPECT_EQ(fileExists(c.path), !c.leftover) << c.path;
        EXPECT_EQ(LogCapture::count("removeWriteLeftovers: Removed " + rooted(c.path) +
                                    ", left over from an interrupted write"),
                  c.leftover ? 1 : 0)
            << c.path;
    }
}

} // namespace
