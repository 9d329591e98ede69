#include "common/lists.h"

#include <gtest/gtest.h>

#include <glib.h>

#include <string>
#include <vector>

#include "platform/log.h"

namespace {

using Strings = std::vector<std::string>;

TEST(Lists, StrArrayAppendSplitsAndGrows) {
    struct Case {
        const char *start, *appended; // the start joined, or null for the empty list
        Strings expected;
    } cases[] = {{nullptr, "a;b", {"a", "b"}}, {"a;b", "c;d", {"a", "b", "c", "d"}},
                 {"a", "a", {"a", "a"}},       {"a", "", {"a"}},
                 {"a", nullptr, {"a"}},        {nullptr, nullptr, {}}};
    for (const auto &c : cases) {
        g_auto(GStrv) array = c.start ? g_strsplit(c.start, ";", -1) : nullptr;
        StrArray result = prvStrArrayAppend(&array, c.appended);
        EXPECT_EQ(result, array);
        EXPECT_EQ(Strings(array, array + (array ? g_strv_length(array) : 0)), c.expected)
            << logText(c.start) << " + " << logText(c.appended);
    }
    EXPECT_EQ(prvStrArrayAppend(nullptr, "a"), nullptr);
}

TEST(Lists, StrAppendJoinsWithSeparator) {
    struct Case {
        const char *start, *appended, *expected;
    } cases[] = {{nullptr, "a", "a"},
                 {"a;b", "c", "a;b;c"},
                 {"a", "", "a"},
                 {"a", nullptr, "a"},
                 {nullptr, "", nullptr}};
    for (const auto &c : cases) {
        g_autofree char *list = g_strdup(c.start);
        char *before = list;
        char *result = prvStrAppend(&list, c.appended);
        EXPECT_EQ(result, list);
        EXPECT_STREQ(list, c.expected);
        if (!c.appended || !*c.appended) {
            EXPECT_EQ(list, before) << "an empty append must not reallocate";
        }
    }
    EXPECT_EQ(prvStrAppend(nullptr, "a"), nullptr);
}

TEST(Lists, FindInStringArrayIsBoundedByCount) {
    g_auto(GStrv) array = g_strsplit("com.a;com.b;com.a;com.c;", ";", -1);
    struct Case {
        int count;
        const char *string;
        int expected;
    } cases[] = {
        {4, "com.a", 0},                    // the first of two
        {4, "com.c", 3},  {3, "com.c", -1}, // beyond the owner's count
        {4, "COM.A", -1},                   // case-sensitive
        {4, "com", -1},   {4, nullptr, -1},
        {5, "", -1},                        // an empty name is never found, not even an empty entry
        {0, "com.a", -1}, {9, "com.x", -1}, // an overstated count must not read past the terminator
    };
    for (const auto &c : cases)
        EXPECT_EQ(prvFindInStringArray(array, c.count, c.string), c.expected)
            << logText(c.string) << " in " << c.count;
    EXPECT_EQ(prvFindInStringArray(nullptr, 4, "com.a"), -1);
}

} // namespace
