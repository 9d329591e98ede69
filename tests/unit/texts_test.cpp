#include "common/texts.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/json.h"

namespace {

constexpr size_t SIZE = 11; // room for 10 bytes

std::string cut(const char *src, size_t size = SIZE) {
    char dest[SIZE + 1];
    copyReceivedText(dest, src, size);
    return dest;
}

// Every kind of piece, placed at each offset from well before the limit to right at it: the
// piece is kept whole when it fits and dropped whole when it does not, and what is kept parses.
TEST(Texts, CutNeverSplitsAnEscapeOrACharacter) {
    const std::string pieces[] = {"\\\"",           "\\\\",     "\\n",          "\\u00e9",
                                  "\\ud83d\\ude00", "\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x98\x80"};
    const std::string filler(SIZE, 'b');
    for (const std::string &piece : pieces)
        for (size_t offset = 0; offset < SIZE; offset++) {
            std::string head(offset, 'a');
            std::string expected = head;
            if (offset + piece.size() < SIZE)
                expected = (head + piece + filler).substr(0, SIZE - 1);
            std::string result = cut((head + piece + filler).c_str());
            EXPECT_EQ(result, expected) << piece << " at " << offset;
            EXPECT_TRUE(jsonParse(("\"" + result + "\"").c_str())) << result;
        }
}

TEST(Texts, EdgesOfTheSourceAndTheSize) {
    const struct {
        const char *src;
        size_t size;
        const char *expected;
    } cases[] = {
        {"", SIZE, ""},
        {nullptr, SIZE, ""},
        {"abcdefghij", SIZE, "abcdefghij"}, // exactly fits
        {"abc", 1, ""},
        {"abc\\", SIZE, "abc"},               // a lone backslash at the end never stays
        {"ab\\u00e", SIZE, "ab"},             // nor an escape the source ends inside
        {"\\\\\\\"", 4, "\\\\"},              // an escaped backslash, then an escaped quote
        {"ab\\ud83d\\u0041", 9, "ab\\ud83d"}, // a high half without its low half is one piece
        {"a\xff\xc3z", SIZE, "a\xff\xc3z"},   // bytes that are no UTF-8 go as they are
    };
    for (const auto &c : cases)
        EXPECT_EQ(cut(c.src, c.size), c.expected) << (c.src ? c.src : "(null)") << " " << c.size;
    char untouched[] = "keep";
    copyReceivedText(untouched, "x", 0);
    EXPECT_STREQ(untouched, "keep");
}

} // namespace
