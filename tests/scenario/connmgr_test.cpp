// The connection manager subscription and the download manager's 1x permission, with both
// services played by fakes and the daemon running in-process.
#include "core_fixture.h"
#include "monitors/connmgr.h"
#include "service/demo_state.h"

namespace {

const char CANCEL[] = R"({"subscribe":false})";
const char OFF_WIFI[] = R"({"returnValue":true,"isInternetConnectionAvailable":true,)"
                        R"("wifi":{"state":"disconnected"},"wan":{"network":"lte"}})";

class ConnMgr : public CoreScenario {
  protected:
    void SetUp() override {
        CoreScenario::SetUp();
        // The subscription is kept open to push updates; a cancel is answered at once.
        connMgr.handle("/", "getstatus", [this](BusHandle *h, BusMessage *m) {
            if (std::string(KSMessageGetPayload(m)) != R"({"subscribe":true})")
                return (void)KSMessageReply(h, m, R"({"returnValue":true})", nullptr);
            KSMessageUnref(subscription);
            subscription = (KSMessageRef(m), m);
            subscriptionHandle = h;
        });
        downloadManager.reply("/", "allow1x", core::OK);
        ASSERT_TRUE(downloadManager.start());
        startWithDemo(core::DEMO_ON);
    }
    void TearDown() override {
        KSMessageUnref(subscription);
        downloadManager.stop();
        CoreScenario::TearDown();
    }
    void subscribe() {
        EXPECT_EQ(getConnectionStatus(true), -1);
        ASSERT_TRUE(waitUntil([&] { return subscription != nullptr; }, "the subscription"));
    }
    // Every reply after the first reaches the daemon as a subscription update.
    void update(const char *payload) {
        LogCapture::clear();
        KSMessageReply(subscriptionHandle, subscription, payload, nullptr);
        ASSERT_TRUE(waitUntil([] { return LogCapture::contains("connMgrCB: "); }, payload));
    }
    void subscribeOffWifi() {
        subscribe();
        update(OFF_WIFI);
        ASSERT_TRUE(waitUntil([] { return get1xDownloadStatus() == 1; }, "1x confirmed"));
    }

    FakeService downloadManager{"com.velto.downloadmanager"};
    BusHandle *subscriptionHandle = nullptr;
    BusMessage *subscription = nullptr;
};

TEST_F(ConnMgr, UpdatesSetTheAvailabilityAsk1xOnceOffWifiAndRefusalResubscribes) {
    EXPECT_EQ(getConnectionStatus(false), -1);
    spinFor(50);
    EXPECT_EQ(connMgr.count("getstatus"), 0);
    subscribeOffWifi();
    EXPECT_EQ(getConnectionStatus(false), 1);
    EXPECT_EQ(downloadManager.lastPayload("allow1x"), R"({"value": true})");

    // Once confirmed, 1x is never asked again, off Wi-Fi or not.
    const std::pair<const char *, int> steps[] = {
        {R"({"returnValue":true,"isInternetConnectionAvailable":null})", -1},
        {R"({"isInternetConnectionAvailable":"FALSE","wifi":{"state":"off"}})", 0},
        {R"({"isInternetConnectionAvailable":"TRUE","wifi":{"state":"connected"},"wan":{}})", 1},
    };
    for (const auto &[payload, status] : steps) {
        update(payload);
        EXPECT_EQ(getConnectionStatus(false), status) << payload;
    }
    spinFor(50);
    EXPECT_EQ(downloadManager.count("allow1x"), 1);
    EXPECT_EQ(connMgr.count("getstatus"), 1);

    // A refusal cancels the subscription and forgets the availability; the next need remakes it.
    update(R"({"returnValue":false,"errorCode":3,"errorText":"busy"})");
    ASSERT_TRUE(
        waitUntil([&] { return connMgr.lastPayload("getstatus") == CANCEL; }, "the cancel"));
    subscription = (KSMessageUnref(subscription), nullptr);
    subscribe();
    EXPECT_EQ(connMgr.count("getstatus"), 3);
}

TEST_F(ConnMgr, ShutdownWithdraws1xBeforeCancelling) {
    subscribeOffWifi();
    stopAllTimers();
    ASSERT_TRUE(waitUntil(
        [&] {
            return downloadManager.lastPayload("allow1x") == R"({"value": false})" &&
                   connMgr.lastPayload("getstatus") == CANCEL;
        },
        "withdraw and cancel"));
    // The two services hear on connections of their own; the daemon's log gives the send order.
    std::string log = LogCapture::dump();
    EXPECT_LT(log.find(R"(Params: {"value": false})"), log.find("Shutdown Connection Manager"));
    EXPECT_FALSE(shutdownConnMgr());
}

} // namespace
