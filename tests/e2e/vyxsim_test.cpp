// The simulator on its own, so a failing daemon test points at the daemon, not at what it plays.
#include <gmock/gmock.h>

#include "support/e2e_harness.h"

namespace {

class VyxsimTest : public E2eTest {};

TEST_F(VyxsimTest, ShippedScenariosLoadAndMalformedOnesEndWithTheReasonAndStatus1) {
    g_autoptr(GDir) shipped = g_dir_open(shippedScenario("").c_str(), 0, nullptr);
    ASSERT_NE(shipped, nullptr);
    while (const char *name = g_dir_read_name(shipped))
        EXPECT_TRUE(!g_str_has_suffix(name, ".json") ||
                    runTool("vyxsim", {"--check", shippedScenario(name)}).status == 0)
            << name;

    const std::pair<std::string, const char *> cases[] = {
        {std::string(100000, '['), "not a JSON document"}, // deeper than the parser allows
        {"{\"name\":\"\xff\"}", "not UTF-8"},
        {R"({"device":{"installed":[{"id":"a","version":3}]}})", "[0].version: expected a string"},
        {R"({"store":{"catalogue":[{"id":"a","version":"1","size":-4}]}})",
         "store.catalogue[0].size: -4 is out of range"},
        {R"({"files":{"/etc/../passwd":"x"}})", "not allowed in a path"},
        {R"({"extends":"nowhere.json"})", "extends: nowhere.json"},
        {R"({"extends":"case.json"})", "more than 4 deep"},
    };
    for (const auto &[text, says] : cases) {
        ToolRun run = runTool("vyxsim", {"--check", writeScenario("case.json", text)});
        EXPECT_EQ(run.status, 1) << run.err; // an exit, not a signal: no crash on any input
        EXPECT_THAT(run.err, ::testing::HasSubstr(says));
    }
}

TEST_F(VyxsimTest, SubscribersHearEveryChangeUntilTheyThemselvesUnsubscribe) {
    ASSERT_TRUE(startSim(shippedScenario("fresh-device.json")));
    const std::string uri = "velto://com.velto.connectionmanager/getstatus";
    BusClient subscriber, stranger;
    ASSERT_NE(subscriber.call(uri, R"({"subscribe":true})"), "");
    // someone else's cancel must not end this subscription
    ASSERT_NE(stranger.call(uri, R"({"subscribe":false})"), "");

    std::string down = R"({"isInternetConnectionAvailable":false,"wifi":{"state":"disconnected"},)"
                       R"("wan":{"state":"disconnected","network":""}})";
    EXPECT_EQ(call("velto://com.velto.sim/setConnectivity", down),
              R"({"returnValue":true,"notified":1})");
    ASSERT_TRUE(waitUntil([&] { return subscriber.replies().size() == 2; }, "the update"));
    EXPECT_EQ(subscriber.replies()[1], R"({"returnValue":true,)" + down.substr(1));

    ASSERT_NE(subscriber.call(uri, R"({"subscribe":false})"), "");
    EXPECT_EQ(call("velto://com.velto.sim/setConnectivity", down),
              R"({"returnValue":true,"notified":0})");
}

} // namespace
