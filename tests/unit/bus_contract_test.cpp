// The bus layer's wire contract, as the simulator, the client and other services rely on it.
#include "bus_test.h"
#include "fake_service.h"
#include "platform/json.h"

namespace {

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
