#include "platform/json.h"

#include <gtest/gtest.h>

#include <glib.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

std::string corpusDir() {
    return std::string(VYX_SOURCE_DIR) + "/tests/fuzz/corpus/json";
}

std::vector<std::string> corpusFiles(const char *prefix) {
    std::vector<std::string> names;
    g_autoptr(GDir) dir = g_dir_open(corpusDir().c_str(), 0, nullptr);
    if (!dir)
        return names;
    while (const char *name = g_dir_read_name(dir))
        if (g_str_has_prefix(name, prefix) && g_str_has_suffix(name, ".json"))
            names.push_back(name);
    return names;
}

// The parser takes a NUL-terminated text, so a file's bytes count only up to its first NUL.
std::string readCorpusFile(const std::string &name) {
    g_autofree char *contents = nullptr;
    gsize length = 0;
    std::string path = corpusDir() + "/" + name;
    if (!g_file_get_contents(path.c_str(), &contents, &length, nullptr))
        ADD_FAILURE() << "can't read " << path;
    return contents ? std::string(contents) : std::string();
}

// Structural checks on a whole tree, walked without recursion: every link agrees with its
// counterpart, labels hold exactly one value, texts exist exactly where they should.
void expectSoundTree(const JsonNode *root) {
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->parent, nullptr);
    EXPECT_EQ(root->next, nullptr);
    EXPECT_EQ(root->previous, nullptr);
    std::vector<const JsonNode *> pending{root};
    while (!pending.empty()) {
        const JsonNode *node = pending.back();
        pending.pop_back();
        bool hasText = node->type == JSON_STRING || node->type == JSON_NUMBER;
        EXPECT_EQ(node->text != nullptr, hasText);
        bool isLabel = node->parent && node->parent->type == JSON_OBJECT;
        if (isLabel) {
            ASSERT_EQ(node->type, JSON_STRING);
            ASSERT_NE(node->child, nullptr);
            EXPECT_EQ(node->child, node->lastChild);
        } else if (node->type != JSON_OBJECT && node->type != JSON_ARRAY) {
            EXPECT_EQ(node->child, nullptr);
        }
        const JsonNode *previous = nullptr;
        for (const JsonNode *child = node->child; child; child = child->next) {
            EXPECT_EQ(child->parent, node);
            EXPECT_EQ(child->previous, previous);
            previous = child;
            pending.push_back(child);
        }
        EXPECT_EQ(node->lastChild, previous);
    }
}

class Corpus : public ::testing::TestWithParam<std::string> {};

TEST_P(Corpus, VerdictMatchesFilePrefix) {
    const std::string &name = GetParam();
    std::string text = readCorpusFile(name);
    JsonTree tree = jsonParse(text.c_str());
    switch (name[0]) {
    case 'y':
        EXPECT_NE(tree, nullptr) << text;
        if (tree)
            expectSoundTree(tree.get());
        break;
    case 'n':
        // "123" followed by a NUL byte: the text we are given ends at the NUL and is a number.
        if (name == "n_multidigit_number_then_00.json") {
            ASSERT_NE(tree, nullptr);
            EXPECT_STREQ(tree->text, "123");
        } else {
            EXPECT_EQ(tree, nullptr) << text;
        }
        break;
    default:
        if (tree)
            expectSoundTree(tree.get());
        break;
    }
}

std::vector<std::string> allCorpusFiles() {
    std::vector<std::string> names;
    for (const char *prefix : {"y_", "n_", "i_"})
        for (auto &name : corpusFiles(prefix))
            names.push_back(name);
    std::sort(names.begin(), names.end());
    return names;
}

INSTANTIATE_TEST_SUITE_P(JsonTestSuite, Corpus, ::testing::ValuesIn(allCorpusFiles()),
                         [](const auto &info) {
                             // Test names allow only letters, digits and '_'; the corpus
                             // names differ in punctuation alone ("-1.0." and "-1.0.."),
                             // so spell it out instead of flattening it.
                             std::string name;
                             for (char c : info.param.substr(0, info.param.size() - 5)) {
                                 if (g_ascii_isalnum(c) || c == '_')
                                     name += c;
                                 else {
                                     char hex[8];
                                     snprintf(hex, sizeof hex, "_%02X", c & 0xFF);
                                     name += hex;
                                 }
                             }
                             return name;
                         });

TEST(JsonCorpus, IsPresent) {
    EXPECT_GE(corpusFiles("y_").size(), 90u);
    EXPECT_GE(corpusFiles("n_").size(), 180u);
}

// Verdicts the corpus leaves open ("i_") or does not reach, as this parser gives them.
TEST(JsonParse, AcceptsAndRejects) {
    struct Case {
        const char *text;
        bool accepted;
    } cases[] = {
        {" \t\r\n", false},
        {" \t\r\n{} \t\r\n", true},
        {"\xEF\xBB\xBF{}", false}, // a byte order mark is not whitespace
        {"nulll", false},
        {"[1}", false},
        {"{\"a\":1]", false},
        {"\"\\u12G4\"", false},
        {"\"\\uD800\"", true},   // escapes are kept as written, so a lone surrogate is just text
        {"\"\xC0\xAF\"", false}, // overlong
        {"\"\xE0\x80\xAF\"", false},     // overlong
        {"\"\xED\xA0\x80\"", false},     // encoded surrogate
        {"\"\xF4\x90\x80\x80\"", false}, // above U+10FFFF
        {"\"\xF0\x9F\x98\x80\"", true},
        {"\"\xE2\x82\"", false}, // cut short by the closing quote
        {"\"\xE2\x82", false},   // cut short by the end of the text
        {"\"abc\\", false},
    };
    for (const auto &c : cases) {
        JsonTree tree = jsonParse(c.text);
        EXPECT_EQ(tree != nullptr, c.accepted) << "text: " << c.text;
    }
    EXPECT_EQ(json_parse_document(nullptr), nullptr);
}

TEST(JsonParse, KeepsStringAndKeyTextsAsWritten) {
    const char *texts[] = {
        "",
        "plain",
        "a\\/b",
        "\\\"quoted\\\"",
        "\\\\server\\\\share",
        "\\b\\f\\n\\r\\t",
        "\\u0000 and \\uD834\\uDD1E",
        "caf\xC3\xA9",
    };
    for (const char *raw : texts) {
        std::string document = std::string("{\"") + raw + "\":[\"" + raw + "\"]}";
        JsonTree tree = jsonParse(document.c_str());
        ASSERT_NE(tree, nullptr) << document;
        JsonNode *label = tree->child;
        ASSERT_NE(label, nullptr);
        EXPECT_STREQ(label->text, raw);
        EXPECT_STREQ(label->child->child->text, raw);
        EXPECT_EQ(json_find_first_label(tree.get(), raw), label);
    }
}

TEST(JsonParse, NumbersKeepTheirSourceText) {
    const char *numbers[] = {"0",     "-0",       "42",
                             "-1",    "3.14",     "1e5",
                             "1E+05", "-2.5e-10", "123456789012345678901234567890",
                             "0.000"};
    for (const char *number : numbers) {
        std::string document = std::string("[ ") + number + " , " + number + "]";
        JsonTree tree = jsonParse(document.c_str());
        ASSERT_NE(tree, nullptr) << document;
        for (JsonNode *element = tree->child; element; element = element->next) {
            EXPECT_EQ(element->type, JSON_NUMBER);
            EXPECT_STREQ(element->text, number);
        }
        JsonTree alone = jsonParse(number);
        ASSERT_NE(alone, nullptr);
        EXPECT_STREQ(alone->text, number);
    }
}

TEST(JsonParse, BuildsTheDescribedTreeShape) {
    JsonTree tree = jsonParse(R"({"a":[1,true,false,null,"s",{}],"b":{"c":"d"},"a":0})");
    ASSERT_NE(tree, nullptr);
    expectSoundTree(tree.get());
    ASSERT_EQ(tree->type, JSON_OBJECT);

    JsonNode *a = tree->child;
    JsonNode *b = a->next;
    JsonNode *secondA = b->next;
    EXPECT_EQ(secondA, tree->lastChild);
    EXPECT_EQ(secondA->next, nullptr);
    EXPECT_STREQ(a->text, "a");
    EXPECT_STREQ(b->text, "b");

    JsonNode *array = a->child;
    ASSERT_EQ(array->type, JSON_ARRAY);
    std::vector<json_value_type> types;
    for (JsonNode *element = array->child; element; element = element->next)
        types.push_back(element->type);
    EXPECT_EQ(types, (std::vector<json_value_type>{JSON_NUMBER, JSON_TRUE, JSON_FALSE, JSON_NULL,
                                                   JSON_STRING, JSON_OBJECT}));
    EXPECT_EQ(array->lastChild->type, JSON_OBJECT);
    EXPECT_EQ(array->lastChild->child, nullptr);
    EXPECT_EQ(array->lastChild->previous->previous->type, JSON_NULL);

    JsonNode *inner = b->child;
    EXPECT_EQ(inner->parent, b);
    EXPECT_STREQ(inner->child->text, "c");
    EXPECT_STREQ(inner->child->child->text, "d");
    EXPECT_EQ(inner->child->child->parent, inner->child);
}

std::string nested(int depth, char open, char close, const char *inside = "") {
    return std::string(depth, open) + inside + std::string(depth, close);
}

TEST(JsonParse, BoundsNestingDepth) {
    EXPECT_NE(jsonParse(nested(JSON_MAX_DEPTH, '[', ']').c_str()), nullptr);
    EXPECT_EQ(jsonParse(nested(JSON_MAX_DEPTH + 1, '[', ']').c_str()), nullptr);

    std::string objects;
    for (int i = 0; i < JSON_MAX_DEPTH; i++)
        objects += "{\"k\":";
    std::string deepest = objects + "1" + std::string(JSON_MAX_DEPTH, '}');
    EXPECT_NE(jsonParse(deepest.c_str()), nullptr);
    std::string tooDeep = objects + "{}" + std::string(JSON_MAX_DEPTH, '}');
    EXPECT_EQ(jsonParse(tooDeep.c_str()), nullptr);

    // Depth is nesting, not the number of containers: closing one gives its level back.
    std::string wide;
    for (int i = 0; i < 3 * JSON_MAX_DEPTH; i++)
        wide += "[],";
    wide = "[" + wide + "[]]";
    EXPECT_NE(jsonParse(wide.c_str()), nullptr);

    // Hostile input: far too deep, closed or left open; neither may touch the stack.
    EXPECT_EQ(jsonParse(std::string(100000, '[').c_str()), nullptr);
    EXPECT_EQ(jsonParse(nested(100000, '[', ']').c_str()), nullptr);
}

TEST(JsonFree, FreesDeepAndWideTreesAndSubtrees) {
    // A deep chain and a long list both go through the iterative free (ASan checks the rest).
    JsonNode *deep = json_parse_document(nested(JSON_MAX_DEPTH, '[', ']', "1").c_str());
    ASSERT_NE(deep, nullptr);
    json_free_value(&deep);
    EXPECT_EQ(deep, nullptr);

    std::string list = "[0";
    for (int i = 1; i < 10000; i++) {
        list += ',';
        list += std::to_string(i);
    }
    JsonTree wide = jsonParse((list + "]").c_str());
    ASSERT_NE(wide, nullptr);

    // Freeing one member unlinks it; the rest of the tree stays whole.
    JsonTree tree = jsonParse(R"({"a":1,"b":[2,3],"c":4})");
    ASSERT_NE(tree, nullptr);
    JsonNode *b = json_find_first_label(tree.get(), "b");
    json_free_value(&b);
    EXPECT_EQ(b, nullptr);
    expectSoundTree(tree.get());
    EXPECT_STREQ(tree->child->text, "a");
    EXPECT_STREQ(tree->child->next->text, "c");

    JsonNode *first = tree->child;
    json_free_value(&first);
    JsonNode *last = tree->lastChild;
    json_free_value(&last);
    EXPECT_EQ(tree->child, nullptr);
    EXPECT_EQ(tree->lastChild, nullptr);

    JsonNode *none = nullptr;
    json_free_value(&none);
    json_free_value(nullptr);
}

TEST(JsonLookup, FindsMembersByRawKey) {
    JsonTree tree = jsonParse(
        R"({"flag":true,"off":false,"name":"vyx","n":7,"nil":null,"flag":false,"a\/b":"x","":"empty"})");
    ASSERT_NE(tree, nullptr);
    const JsonNode *root = tree.get();

    JsonNode *flag = json_find_first_label(root, "flag");
    ASSERT_NE(flag, nullptr);
    EXPECT_EQ(flag, root->child); // the first of duplicated keys
    EXPECT_NE(json_find_first_label(root, "a\\/b"), nullptr);
    EXPECT_EQ(json_find_first_label(root, "a/b"), nullptr);
    EXPECT_NE(json_find_first_label(root, ""), nullptr);
    EXPECT_EQ(json_find_first_label(root, "Flag"), nullptr);
    EXPECT_EQ(json_find_first_label(root, "missing"), nullptr);
    EXPECT_EQ(json_find_first_label(root, nullptr), nullptr);
    EXPECT_EQ(json_find_first_label(nullptr, "flag"), nullptr);
    // Only objects have members: not the label itself, not a string value named like a key.
    EXPECT_EQ(json_find_first_label(flag, "flag"), nullptr);
    JsonTree array = jsonParse(R"(["flag"])");
    EXPECT_EQ(json_find_first_label(array.get(), "flag"), nullptr);

    struct Case {
        const char *key;
        bool isBool;
        bool boolValue;
        const char *string;
    } cases[] = {
        {"flag", true, true, nullptr},  {"off", true, false, nullptr},
        {"name", false, false, "vyx"},  {"n", false, false, nullptr},
        {"nil", false, false, nullptr}, {"missing", false, false, nullptr},
    };
    for (const auto &c : cases) {
        bool value = !c.boolValue;
        EXPECT_EQ(json_get_bool(root, c.key, &value), c.isBool) << c.key;
        if (c.isBool) {
            EXPECT_EQ(value, c.boolValue) << c.key;
        }
        const char *text = "untouched";
        EXPECT_EQ(json_get_string(root, c.key, &text), c.string != nullptr) << c.key;
        EXPECT_STREQ(text, c.string ? c.string : "untouched") << c.key;
    }
    bool value = false;
    const char *text = nullptr;
    EXPECT_FALSE(json_get_bool(nullptr, "flag", &value));
    EXPECT_FALSE(json_get_string(array.get(), "flag", &text));
}

// The simulator and the test harness write parsed trees back out; what they write must read back
// as the same document, escapes and number texts untouched.
TEST(JsonWrite, WritesWhatWasParsedBackCompactly) {
    const char *documents[] = {
        "{\"a\":[1,-2.5e3,true,false,null],\"b\":{\"c\\/d\":\"x\\u0041\\\"\"}}",
        "[]",
        "{}",
        "\"plain\"",
        "0",
        "[[[],{}]]",
    };
    for (const char *document : documents) {
        SCOPED_TRACE(document);
        JsonTree tree = jsonParse(document);
        ASSERT_TRUE(tree);
        EXPECT_EQ(json_write(tree.get()), document);
    }
    JsonTree spaced = jsonParse(" { \"k\" : [ 1 , 2 ] } ");
    EXPECT_EQ(json_write(spaced.get()), "{\"k\":[1,2]}");
    EXPECT_EQ(json_write(nullptr), "null");
}

} // namespace
