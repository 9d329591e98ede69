// Reading payloads and answering calls: the helpers every handler and reply callback uses.
#include <syslog.h>

#include "bus_test.h"
#include "common/json_access.h"

namespace {

class JsonAccess : public LogTest {};

const JsonNode *member(const JsonTree &tree, const char *key) {
    return json_find_first_label(tree.get(), key);
}

TEST_F(JsonAccess, BooleansArriveAsLiteralsOrWordsInAnyCase) {
    struct Case {
        const char *value;
        bool isTrue, isFalse;
    } cases[] = {
        {"true", true, false},     {"\"true\"", true, false}, {"\"True\"", true, false},
        {"\"TRUE\"", true, false}, {"false", false, true},    {"\"fAlSe\"", false, true},
        {"1", false, false},       {"0", false, false},       {"null", false, false},
        {"\"yes\"", false, false}, {"{}", false, false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.value);
        JsonTree tree = jsonParse((std::string("{\"k\":") + c.value + "}").c_str());
        ASSERT_TRUE(tree);
        EXPECT_EQ(isJsonObjectTrue(member(tree, "k")), c.isTrue);
        EXPECT_EQ(isJsonObjectFalse(member(tree, "k")), c.isFalse);
    }
    EXPECT_FALSE(isJsonObjectTrue(nullptr));
    EXPECT_FALSE(isJsonObjectFalse(nullptr));
}

TEST_F(JsonAccess, GetJsonStringReturnsTextsOfStringsAndNumbersOnly) {
    JsonTree tree = jsonParse(R"({"o":{"s":"a\/b","n":42,"z":null,"t":true,"a":[1]}})");
    const JsonNode *o = member(tree, "o");
    EXPECT_STREQ(getJsonString(o, "s"), "a\\/b");
    EXPECT_STREQ(getJsonString(o, "n"), "42");
    EXPECT_STREQ(getJsonString(o, "missing"), "");
    EXPECT_STREQ(getJsonString(o, "z"), "");
    EXPECT_TRUE(LogCapture::has(
        LOG_DEBUG, "getJsonString: Element for z doesn't exist or isn't a string [null type]"));
    EXPECT_STREQ(getJsonString(o, "t"), "");
    EXPECT_TRUE(LogCapture::hasText(
        "getJsonString: Element for t doesn't exist or isn't a string [boolean:true]"));
    EXPECT_STREQ(getJsonString(nullptr, "s"), "");
    EXPECT_TRUE(LogCapture::has(LOG_DEBUG, "getJsonString: Invalid base element for s"));
}

TEST_F(JsonAccess, FindFirstLabelLogsBadParametersAndNonObjects) {
    JsonTree tree = jsonParse(R"({"arr":[1,2]})");
    EXPECT_EQ(prvJsonFindFirstLabel(tree.get(), nullptr, "caller"), nullptr);
    EXPECT_TRUE(LogCapture::has(LOG_ALERT,
                                "caller: Bad param in call to prvJsonFindFirstLabel: name: NULL"));
    EXPECT_EQ(prvJsonFindFirstLabel(nullptr, "k", nullptr), nullptr);
    EXPECT_TRUE(LogCapture::has(
        LOG_ALERT, "prvJsonFindFirstLabel: Bad param in call to prvJsonFindFirstLabel: name: k"));
    EXPECT_EQ(prvJsonFindFirstLabel(member(tree, "arr")->child, "k", "caller"), nullptr);
    EXPECT_TRUE(LogCapture::has(
        LOG_DEBUG,
        "caller: Invalid element type of array in call to prvJsonFindFirstLabel: name: k"));
    EXPECT_NE(prvJsonFindFirstLabel(tree.get(), "arr", "caller"), nullptr);
}

TEST_F(JsonAccess, OnlyTheNotRunningReplyOfTheNamedServiceIsIgnored) {
    struct Case {
        const char *reply;
        bool ignored;
        const char *logLine; // what explains the decision, if anything
    } cases[] = {
        {R"({"returnValue":false,"errorCode":-1,"errorText":"com.x is not running.","serviceName":"com.x"})",
         true, "cb: Ignoring response (errorText: com.x is not running.)"},
        {R"({"returnValue":"False","errorCode":-1,"errorText":"com.x is not running","serviceName":"com.x"})",
         true, nullptr},
        {R"({"returnValue":false,"errorCode":-2,"errorText":"com.x is not running.","serviceName":"com.x"})",
         false, "cb: Unexpected value in errorCode: -2"},
        {R"({"returnValue":false,"errorCode":"-1","errorText":"com.x is not running.","serviceName":"com.x"})",
         false, "cb: Unexpected value in errorCode: -1"},
        {R"({"returnValue":false,"errorCode":-1,"errorText":"Service com.x is not running.","serviceName":"com.x"})",
         false,
         "cb: errorText [Service com.x is not running.] doesn't start with [com.x is not running]"},
        {R"({"returnValue":false,"errorCode":-1,"errorText":"com.x is not running."})", false,
         nullptr},
        {R"({"returnValue":true,"errorCode":-1,"errorText":"com.x is not running.","serviceName":"com.x"})",
         false, nullptr},
        {R"({"returnValue":false,"errorCode":-1,"errorText":"com.x is not running.","serviceName":7})",
         false, nullptr},
        {R"([1])", false, nullptr},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.reply);
        LogCapture::clear();
        JsonTree tree = jsonParse(c.reply);
        ASSERT_TRUE(tree);
        EXPECT_EQ(ignoreJsonResponse(tree.get(), "cb"), c.ignored);
        if (c.logLine) {
            EXPECT_TRUE(LogCapture::has(LOG_DEBUG, c.logLine)) << LogCapture::dump();
        }
    }
    EXPECT_FALSE(ignoreJsonResponse(nullptr, "cb"));
}

} // namespace
