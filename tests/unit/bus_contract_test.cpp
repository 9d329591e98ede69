// The bus layer's wire contract, as the simulator, the client and other services rely on it.
#include <gio/gio.h>

#include <memory>

#include "bus_test.h"
#include "fake_service.h"
#include "platform/json.h"

namespace {

class BusContract : public BusTest {};

// Every scenario test calls categories and methods through this layer; what they never reach is
// below. Only a subscribing call hears the replies after the first.
TEST_F(BusContract, LaterRepliesReachOnlySubscriptions) {
    struct Case {
        const char *payload;
        size_t expected;
    } cases[] = {{"{\"subscribe\":true}", 3},
                 {"{\"subscribe\":false}", 1},
                 {"{}", 1},
                 {"[{\"subscribe\":true}]", 1}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.payload);
        FakeService status("com.example.status");
        status.handle("/", "getstatus", [](BusHandle *h, BusMessage *m) {
            KSMessageReply(h, m, "{\"n\":1}", nullptr);
            KSMessageReply(h, m, "{\"n\":2}", nullptr);
            KSMessageReply(h, m, "{\"n\":3}", nullptr);
        });
        ASSERT_TRUE(status.start());
        BusClient client;
        ASSERT_TRUE(client.send("velto://com.example.status/getstatus", c.payload));
        ASSERT_TRUE(waitUntil([&] { return client.replies().size() >= c.expected; }, "replies"));
        spinFor(100);
        ASSERT_EQ(client.replies().size(), c.expected);
        EXPECT_EQ(client.replies()[0], "{\"n\":1}");
        if (c.expected == 3) {
            EXPECT_EQ(client.replies()[2], "{\"n\":3}");
        }
    }
}

// An unknown method, and a call dropped unanswered once its service leaves.
TEST_F(BusContract, OtherBusErrorsCarryTheirMessage) {
    auto quiet = std::make_unique<FakeService>("com.example.quiet");
    quiet->handle("/", "drop", [](BusHandle *, BusMessage *) {});
    ASSERT_TRUE(quiet->start());
    BusClient client;
    std::string unknown = client.call("velto://com.example.quiet/nosuch", "{}");
    EXPECT_EQ(unknown.rfind("{\"returnValue\":false,\"errorCode\":-1,\"errorText\":\"", 0), 0u)
        << unknown;
    EXPECT_EQ(unknown.find("serviceName"), std::string::npos);
    // GDBus quotes names with typographic quotes: the text must still be valid JSON.
    EXPECT_TRUE(jsonParse(unknown.c_str())) << unknown;

    ASSERT_TRUE(client.send("velto://com.example.quiet/drop", "{}"));
    ASSERT_TRUE(waitUntil([&] { return quiet->count("drop") == 1; }, "the call"));
    spinFor(100);
    EXPECT_EQ(client.replies().size(), 1u);
    quiet.reset();
    ASSERT_TRUE(waitUntil([&] { return client.replies().size() == 2; }, "the bus's error"));
    EXPECT_EQ(
        client.replies()[1].rfind("{\"returnValue\":false,\"errorCode\":-1,\"errorText\":", 0), 0u)
        << client.replies()[1];
}

TEST_F(BusContract, PayloadThatIsNotUtf8IsRepairedNotDropped) {
    FakeService echo("com.example.echo");
    echo.handle("/", "echo", [](BusHandle *h, BusMessage *m) {
        KSMessageReply(h, m, "{\"t\":\"caf\xe9\"}", nullptr);
    });
    ASSERT_TRUE(echo.start());
    BusClient client;
    std::string reply = client.call("velto://com.example.echo/echo", "{\"t\":\"\xff\xfe\"}");
    EXPECT_TRUE(g_utf8_validate(reply.c_str(), -1, nullptr));
    EXPECT_EQ(reply.rfind("{\"t\":\"caf", 0), 0u) << reply;
    EXPECT_TRUE(g_utf8_validate(echo.lastPayload("echo").c_str(), -1, nullptr));
}

TEST_F(BusContract, SecondOwnerOfANameIsRefused) {
    FakeService first("com.example.owned");
    first.silent("/", "m");
    ASSERT_TRUE(first.start());
    BusHandle *second = nullptr;
    BusError error;
    KSErrorInit(&error);
    EXPECT_FALSE(KSRegister("com.example.owned", &second, &error));
    EXPECT_EQ(second, nullptr);
    KSErrorFree(&error);
}

// What a process sends on its way out reaching the bus although its connection closes right
// after is met by the shutdown of the connection manager's subscription and by held calls
// answered at the daemon's exit, in-process and end to end.

} // namespace
