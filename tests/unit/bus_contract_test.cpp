// The bus layer's wire contract, as the simulator, the client and other services rely on it.
#include <gio/gio.h>

#include <memory>

#include "bus_test.h"
#include "fake_service.h"
#include "platform/json.h"

namespace {

class BusContract : public BusTest {};

TEST_F(BusContract, CallReachesCategoryAndMethodAndGetsTheReply) {
    FakeService echo("com.example.echo");
    echo.handle("/", "echo", [](BusHandle *h, BusMessage *m) {
        KSMessageReply(h, m, KSMessageGetPayload(m), nullptr);
    });
    echo.reply("/control", "status", "{\"state\":\"on\"}");
    ASSERT_TRUE(echo.start());

    BusClient client;
    EXPECT_EQ(client.call("velto://com.example.echo/echo", "{\"a\":1}"), "{\"a\":1}");
    EXPECT_EQ(client.call("velto://com.example.echo/control/status", "{}"), "{\"state\":\"on\"}");
    ASSERT_EQ(echo.calls("status").size(), 1u);
    EXPECT_EQ(echo.calls("status")[0].category, "/control");
}

TEST_F(BusContract, HeldMessageIsAnsweredAfterItsHandlerReturned) {
    BusMessage *held = nullptr;
    BusHandle *heldOn = nullptr;
    FakeService slow("com.example.slow");
    slow.handle("/", "wait", [&](BusHandle *h, BusMessage *m) {
        KSMessageRef(m);
        held = m;
        heldOn = h;
    });
    ASSERT_TRUE(slow.start());

    BusClient client;
    ASSERT_TRUE(client.send("velto://com.example.slow/wait", "{}"));
    ASSERT_TRUE(waitUntil([&] { return held != nullptr; }, "the call to arrive"));
    spinFor(50);
    EXPECT_TRUE(client.replies().empty());

    EXPECT_TRUE(KSMessageReply(heldOn, held, "{\"late\":true}", nullptr));
    KSMessageUnref(held);
    ASSERT_TRUE(waitUntil([&] { return client.replies().size() == 1; }, "the late reply"));
    EXPECT_EQ(client.replies()[0], "{\"late\":true}");
}

// Only a subscribing call hears the replies after the first.
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

TEST_F(BusContract, CallToAServiceNobodyOwnsGetsTheNotRunningReply) {
    BusClient client;
    EXPECT_EQ(client.call("velto://com.example.absent/anything", "{}"),
              "{\"returnValue\":false,\"errorCode\":-1,\"errorText\":\"com.example.absent is not "
              "running.\",\"serviceName\":\"com.example.absent\"}");
}

TEST_F(BusContract, OtherBusErrorsCarryTheirMessage) {
    FakeService quiet("com.example.quiet");
    quiet.handle("/", "drop", [](BusHandle *, BusMessage *) {});
    ASSERT_TRUE(quiet.start());
    BusClient client;
    std::string unknown = client.call("velto://com.example.quiet/nosuch", "{}");
    EXPECT_NE(unknown.find("\"returnValue\":false,\"errorCode\":-1,\"errorText\":\""),
              std::string::npos)
        << unknown;
    EXPECT_EQ(unknown.find("serviceName"), std::string::npos);
    // GDBus quotes names with typographic quotes: the text must still be valid JSON.
    EXPECT_TRUE(jsonParse(unknown.c_str())) << unknown;
}

TEST_F(BusContract, CallDroppedUnansweredGetsNoReplyUntilItsServiceLeaves) {
    auto quiet = std::make_unique<FakeService>("com.example.quiet");
    quiet->handle("/", "drop", [](BusHandle *, BusMessage *) {});
    ASSERT_TRUE(quiet->start());
    BusClient client;
    ASSERT_TRUE(client.send("velto://com.example.quiet/drop", "{}"));
    ASSERT_TRUE(waitUntil([&] { return quiet->count("drop") == 1; }, "the call"));
    spinFor(100);
    EXPECT_TRUE(client.replies().empty()) << client.replies()[0];
    quiet.reset();
    ASSERT_TRUE(waitUntil([&] { return !client.replies().empty(); }, "the bus's error"));
    EXPECT_EQ(
        client.replies()[0].rfind("{\"returnValue\":false,\"errorCode\":-1,\"errorText\":", 0), 0u)
        << client.replies()[0];
}

static bool countReply(BusHandle *, BusMessage *, void *context) {
    ++*static_cast<int *>(context);
    return true;
}

TEST_F(BusContract, CallbacksRunFromTheLoopNeverInsideTheCall) {
    BusClient client;
    int calls = 0;
    BusToken token = 0;
    ASSERT_TRUE(KSCall(client.handle(), "velto://com.example.absent/x", "{}", countReply, &calls,
                       &token, nullptr));
    EXPECT_EQ(calls, 0);
    EXPECT_NE(token, 0u);
    ASSERT_TRUE(waitUntil([&] { return calls == 1; }, "the not-running reply"));
}

TEST_F(BusContract, CallWithoutCallbackIsDelivered) {
    FakeService sink("com.example.sink");
    sink.silent("/", "put");
    ASSERT_TRUE(sink.start());
    BusClient client;
    ASSERT_TRUE(KSCall(client.handle(), "velto://com.example.sink/put", "{\"v\":1}", nullptr,
                       nullptr, nullptr, nullptr));
    ASSERT_TRUE(waitUntil([&] { return sink.count("put") == 1; }, "the call"));
    EXPECT_EQ(sink.lastPayload("put"), "{\"v\":1}");
}

TEST_F(BusContract, MalformedAddressesAreRefusedWithAnError) {
    BusClient client;
    for (const char *uri :
         {"", "velto://", "velto://com.example.x", "http://com.example.x/m",
          "velto://com.example.x/", "velto://com.example.x/bad path/m", "velto://:1.5/method"}) {
        SCOPED_TRACE(uri);
        BusError error;
        KSErrorInit(&error);
        EXPECT_FALSE(KSCall(client.handle(), uri, "{}", countReply, nullptr, nullptr, &error));
        EXPECT_NE(error.message, nullptr);
        KSErrorFree(&error);
    }
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

TEST_F(BusContract, IntrospectionListsTheMethods) {
    FakeService svc("com.example.intro");
    svc.silent("/", "alpha").silent("/", "beta");
    ASSERT_TRUE(svc.start());
    g_autoptr(GDBusConnection) connection = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
    ASSERT_NE(connection, nullptr);
    g_autoptr(GVariant) xml = g_dbus_connection_call_sync(
        connection, "com.example.intro", "/", "org.freedesktop.DBus.Introspectable", "Introspect",
        nullptr, G_VARIANT_TYPE("(s)"), G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, nullptr);
    ASSERT_NE(xml, nullptr);
    const char *text = nullptr;
    g_variant_get(xml, "(&s)", &text);
    EXPECT_NE(strstr(text, "<interface name=\"com.velto.ks\">"), nullptr) << text;
    EXPECT_NE(strstr(text, "<method name=\"alpha\">"), nullptr);
    EXPECT_NE(strstr(text, "<method name=\"beta\">"), nullptr);
}

// What a process sends on its way out (a withdrawal, a cancelled subscription, the answer to a
// held call) must reach the bus although the connection closes right after.
TEST_F(BusContract, UnregisterDeliversWhatWasSentBeforeIt) {
    FakeService sink("com.example.sink");
    sink.silent("/", "put");
    ASSERT_TRUE(sink.start());
    BusHandle *leaving = nullptr;
    ASSERT_TRUE(KSRegister(nullptr, &leaving, nullptr));
    int replies = 0;
    ASSERT_TRUE(KSCall(leaving, "velto://com.example.sink/put", "{\"n\":1}", countReply, &replies,
                       nullptr, nullptr));
    ASSERT_TRUE(KSCall(leaving, "velto://com.example.sink/put", "{\"n\":2}", nullptr, nullptr,
                       nullptr, nullptr));
    EXPECT_TRUE(KSUnregister(leaving, nullptr));
    ASSERT_TRUE(waitUntil([&] { return sink.count("put") == 2; }, "both calls"));
    EXPECT_EQ(replies, 0);

    BusMessage *held = nullptr;
    BusHandle *heldOn = nullptr;
    auto answering = std::make_unique<FakeService>("com.example.answering");
    answering->handle("/", "wait", [&](BusHandle *h, BusMessage *m) {
        KSMessageRef(m);
        held = m;
        heldOn = h;
    });
    ASSERT_TRUE(answering->start());
    BusClient client;
    ASSERT_TRUE(client.send("velto://com.example.answering/wait", "{}"));
    ASSERT_TRUE(waitUntil([&] { return held != nullptr; }, "the call to arrive"));
    EXPECT_TRUE(KSMessageReply(heldOn, held, "{\"last\":true}", nullptr));
    KSMessageUnref(held);
    answering.reset();
    ASSERT_TRUE(waitUntil([&] { return !client.replies().empty(); }, "the last answer"));
    EXPECT_EQ(client.replies()[0], "{\"last\":true}");
}

} // namespace
