// The platform layer: the JSON parser, the log's levels and the bus's wire contract.
#include <glib.h>
#include <stdlib.h>
#include <string.h>

#include "bus_test.h"
#include "fake_service.h"
#include "platform/json.h"
#include "platform/log.h"

namespace {

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
    const std::string corpus = std::string(VYX_SOURCE_DIR) + "/tests/fuzz/corpus/json";
    g_autoptr(GDir) dir = g_dir_open(corpus.c_str(), 0, nullptr);
    ASSERT_TRUE(dir);
    int files = 0;
    while (const char *name = g_dir_read_name(dir)) {
        const char *verdicts = "yni";
        const char *kind = strchr(verdicts, name[0]);
        if (!kind || name[1] != '_' || !g_str_has_suffix(name, ".json"))
            continue;
        files++;
        g_autofree char *text = nullptr;
        std::string path = corpus + "/" + name;
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
    EXPECT_GE(files, 300); // the corpus is there
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
    EXPECT_EQ(json_write(jsonParse(" \t\r\n{ \"k\" : [ 1 , 2 ] } \t\r\n").get()), "{\"k\":[1,2]}");
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
                    LevelCase{"NamedLevel", "err", true, LOG_ERR},
                    LevelCase{"NameInAnyCase", "Warning", false, LOG_WARNING},
                    LevelCase{"MostUrgentOnly", "emerg", true, LOG_EMERG},
                    LevelCase{"UnknownNameKeepsTheDefault", "error", false, LOG_DEBUG}),
    [](const testing::TestParamInfo<LevelCase> &info) { return std::string(info.param.name); });

// Every scenario test calls categories and methods through this layer; what they never reach is
// below. What a process sends on its way out, its connection closing right after, is met by the
// connection manager's shutdown and by held calls answered at the daemon's exit.
class BusContract : public BusTest {
  protected:
    void SetUp() override {
        BusTest::SetUp();
        service.handle("/", "three", [](BusHandle *h, BusMessage *m) {
            for (const char *reply : {"{\"n\":1}", "{\"n\":2}", "{\"n\":3}"})
                KSMessageReply(h, m, reply, nullptr);
        });
        service.handle("/", "echo", [](BusHandle *h, BusMessage *m) {
            KSMessageReply(h, m, "{\"t\":\"caf\xe9\"}", nullptr);
        });
        service.handle("/", "drop", [](BusHandle *, BusMessage *) {});
        ASSERT_TRUE(service.start());
    }
    void TearDown() override {
        service.stop();
        BusTest::TearDown();
    }
    FakeService service{"com.example.contract"};
};

// Only a call whose payload subscribes at its top level hears the replies after the first.
TEST_F(BusContract, LaterRepliesReachOnlySubscriptions) {
    const char *const payloads[] = {"{\"subscribe\":true}", "{\"subscribe\":false}", "{}",
                                    "[{\"subscribe\":true}]"};
    for (const char *payload : payloads) {
        size_t expected = payload == payloads[0] ? 3 : 1;
        SCOPED_TRACE(payload);
        BusClient client;
        ASSERT_TRUE(client.send("velto://com.example.contract/three", payload));
        ASSERT_TRUE(waitUntil([&] { return client.replies().size() >= expected; }, "replies"));
        spinFor(100);
        ASSERT_EQ(client.replies().size(), expected);
        EXPECT_EQ(client.replies()[0], "{\"n\":1}");
        EXPECT_EQ(client.replies().back(), expected == 3 ? "{\"n\":3}" : "{\"n\":1}");
    }
}

// An unknown method, and a call dropped unanswered once its service leaves.
TEST_F(BusContract, OtherBusErrorsCarryTheirMessage) {
    const std::string error = "{\"returnValue\":false,\"errorCode\":-1,\"errorText\":";
    BusClient client;
    std::string unknown = client.call("velto://com.example.contract/nosuch", "{}");
    EXPECT_EQ(unknown.rfind(error + "\"", 0), 0u) << unknown;
    EXPECT_EQ(unknown.find("serviceName"), std::string::npos);
    // GDBus quotes names with typographic quotes: the text must still be valid JSON.
    EXPECT_TRUE(jsonParse(unknown.c_str())) << unknown;

    ASSERT_TRUE(client.send("velto://com.example.contract/drop", "{}"));
    ASSERT_TRUE(waitUntil([&] { return service.count("drop") == 1; }, "the call"));
    spinFor(100);
    EXPECT_EQ(client.replies().size(), 1u);
    service.stop();
    ASSERT_TRUE(waitUntil([&] { return client.replies().size() == 2; }, "the bus's error"));
    EXPECT_EQ(client.replies()[1].rfind(error, 0), 0u) << client.replies()[1];
}

TEST_F(BusContract, PayloadThatIsNotUtf8IsRepairedNotDropped) {
    BusClient client;
    std::string reply = client.call("velto://com.example.contract/echo", "{\"t\":\"\xff\xfe\"}");
    EXPECT_TRUE(g_utf8_validate(reply.c_str(), -1, nullptr));
    EXPECT_EQ(reply.rfind("{\"t\":\"caf", 0), 0u) << reply;
    EXPECT_TRUE(g_utf8_validate(service.lastPayload("echo").c_str(), -1, nullptr));
}

TEST_F(BusContract, SecondOwnerOfANameIsRefused) {
    BusHandle *second = nullptr;
    BusError error;
    KSErrorInit(&error);
    EXPECT_FALSE(KSRegister("com.example.contract", &second, &error));
    EXPECT_EQ(second, nullptr);
    KSErrorFree(&error);
}

} // namespace
