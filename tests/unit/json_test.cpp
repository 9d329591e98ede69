#include "platform/json.h"

#include <gtest/gtest.h>

#include <glib.h>
#include <string.h>

#include <string>

namespace {

std::string corpusDir() {
    return std::string(VYX_SOURCE_DIR) + "/tests/fuzz/corpus/json";
}

// Structural checks on a whole tree: every link agrees with its counterpart, labels hold exactly
// one value, texts exist exactly where they should.
void expectSoundTree(const JsonNode *node, const JsonNode *parent = nullptr) {
    ASSERT_EQ(node->parent, parent);
    EXPECT_EQ(node->text != nullptr, node->type == JSON_STRING || node->type == JSON_NUMBER);
    if (parent && parent->type == JSON_OBJECT) {
        ASSERT_EQ(node->type, JSON_STRING);
        ASSERT_NE(node->child, nullptr);
        EXPECT_EQ(node->child, node->lastChild);
    } else if (node->type != JSON_OBJECT && node->type != JSON_ARRAY) {
        EXPECT_EQ(node->child, nullptr);
    }
    const JsonNode *previous = nullptr;
    for (const JsonNode *child = node->child; child; previous = child, child = child->next) {
        EXPECT_EQ(child->previous, previous);
        expectSoundTree(child, node);
    }
    EXPECT_EQ(node->lastChild, previous);
}

// The parser takes a NUL-terminated text, so a file's bytes count only up to its first NUL.
TEST(JsonParse, CorpusVerdictsMatchTheFilePrefix) {
    g_autoptr(GDir) dir = g_dir_open(corpusDir().c_str(), 0, nullptr);
    ASSERT_TRUE(dir);
    int counted[3] = {};
    while (const char *name = g_dir_read_name(dir)) {
        const char *verdicts = "yni";
        const char *kind = strchr(verdicts, name[0]);
        if (!kind || name[1] != '_' || !g_str_has_suffix(name, ".json"))
            continue;
        counted[kind - verdicts]++;
        g_autofree char *text = nullptr;
        std::string path = corpusDir() + "/" + name;
        ASSERT_TRUE(g_file_get_contents(path.c_str(), &text, nullptr, nullptr)) << path;
        JsonTree tree = jsonParse(text);
        // "123" and a NUL byte: the text we are given ends at the NUL and is a number.
        bool accepted = *kind == 'y' || strcmp(name, "n_multidigit_number_then_00.json") == 0;
        if (*kind != 'i') {
            EXPECT_EQ(tree != nullptr, accepted) << name;
        }
        if (tree)
            expectSoundTree(tree.get());
    }
    EXPECT_GE(counted[0], 90);
    EXPECT_GE(counted[1], 180);
}

// Written back, a parsed tree reads as the document it came from: types, order, duplicate keys,
// and string, key and number texts exactly as written (escapes unresolved). The simulator and the
// test harness rely on the writer; the daemon relies on the kept texts.
TEST(JsonParse, KeepsEveryTextAsWrittenAndWritesItBack) {
    const char *documents[] = {
        R"({"a":[1,true,false,null,"s",{}],"b":{"c":"d"},"a":0})",
        R"({"":[""],"a\/b":["\"quoted\"","\\\\server\\share"],"\b\f\n\r\t":"\u0000 \uD834\uDD1E"})",
        "{\"caf\xC3\xA9\":\"caf\xC3\xA9\"}",
        "[0,-0,42,-1,3.14,1e5,1E+05,-2.5e-10,123456789012345678901234567890,0.000]",
        "-2.5e-10",
    };
    for (const char *document : documents) {
        SCOPED_TRACE(document);
        JsonTree tree = jsonParse(document);
        ASSERT_TRUE(tree);
        expectSoundTree(tree.get());
        EXPECT_EQ(json_write(tree.get()), document);
    }
    JsonTree spaced = jsonParse(" \t\r\n{ \"k\" : [ 1 , 2 ] } \t\r\n");
    EXPECT_EQ(json_write(spaced.get()), "{\"k\":[1,2]}");
    EXPECT_EQ(json_write(nullptr), "null");
}

std::string nested(int depth, char open, char close) {
    return std::string(depth, open) + std::string(depth, close);
}

// The corpus holds the far-too-deep texts; the bound itself is exact.
TEST(JsonParse, BoundsNestingDepth) {
    EXPECT_NE(jsonParse(nested(JSON_MAX_DEPTH, '[', ']').c_str()), nullptr);
    EXPECT_EQ(jsonParse(nested(JSON_MAX_DEPTH + 1, '[', ']').c_str()), nullptr);
    // Depth is nesting, not the number of containers: closing one gives its level back.
    std::string deepest = nested(JSON_MAX_DEPTH - 1, '[', ']');
    EXPECT_NE(jsonParse(("[" + deepest + "," + deepest + "]").c_str()), nullptr);
}

// Keys match as written, escapes and case included; the first of duplicated keys wins.
TEST(JsonLookup, FindsMembersByRawKey) {
    JsonTree tree = jsonParse(
        R"({"flag":true,"off":false,"name":"vyx","n":7,"nil":null,"flag":false,"a\/b":"x","":"e"})");
    ASSERT_NE(tree, nullptr);
    const JsonNode *root = tree.get();
    struct Case {
        const char *key;
        bool isBool, boolValue;
        const char *string;
    } cases[] = {{"flag", true, true, nullptr},   {"off", true, false, nullptr},
                 {"name", false, false, "vyx"},   {"n", false, false, nullptr},
                 {"nil", false, false, nullptr},  {"missing", false, false, nullptr},
                 {"a\\/b", false, false, "x"},    {"a/b", false, false, nullptr},
                 {"Flag", false, false, nullptr}, {"", false, false, "e"}};
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
    // Only objects have members: not a label, not a string value named like a key.
    EXPECT_EQ(json_find_first_label(root->child, "flag"), nullptr);
    JsonTree array = jsonParse(R"(["flag"])");
    EXPECT_EQ(json_find_first_label(array.get(), "flag"), nullptr);
    EXPECT_FALSE(json_get_bool(nullptr, "flag", nullptr));
}

} // namespace
