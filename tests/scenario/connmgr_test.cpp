// The connection manager subscription and the download manager's 1x permission, with both
// services played by fakes and the daemon running in-process.
#include <syslog.h>

#include "bus_test.h"
#include "fake_service.h"
#include "monitors/connmgr.h"
#include "service/demo_state.h"
#include "service/service.h"

namespace {

const char SUBSCRIBE[] = R"({"subscribe":true})";
const char CANCEL[] = R"({"subscribe":false})";
const char OFF_WIFI[] = R"({"returnValue":true,"isInternetConnectionAvailable":true,)"
                        R"("wifi":{"state":"disconnected"},"wan":{"network":"lte"}})";

class ConnMgr : public BusTest {
  protected:
    void SetUp() override {
        BusTest::SetUp();
        prefs.reply("/", "getPreferences", R"({"returnValue":true,"vyxStageRunning":true})");
        // The subscription is kept open to push updates; a cancel is answered at once.
        connectionManager.handle("/", "getstatus", [this](BusHandle *h, BusMessage *m) {
            if (std::string(KSMessageGetPayload(m)) != SUBSCRIBE) {
                KSMessageReply(h, m, R"({"returnValue":true})", nullptr);
                return;
            }
            KSMessageUnref(subscription);
            KSMessageRef(m);
            subscriptionHandle = h;
            subscription = m;
        });
        downloadManager.reply("/", "allow1x", R"({"returnValue":true})");
        for (FakeService *fake : {&prefs, &connectionManager, &downloadManager})
            ASSERT_TRUE(fake->start());
        ASSERT_TRUE(serviceStart());
        ASSERT_TRUE(waitUntil([] { return isDemoStatusLoaded() == 1; }, "demo preference"));
    }
    void TearDown() override {
        serviceFinish();
        KSMessageUnref(subscription);
        for (FakeService *fake : {&prefs, &connectionManager, &downloadManager})
            fake->stop();
        BusTest::TearDown();
    }
    void subscribe() {
        EXPECT_EQ(getConnectionStatus(true), -1);
        ASSERT_TRUE(waitUntil([&] { return subscription != nullptr; }, "the subscription"));
    }
    // Every reply after the first reaches the daemon as a subscription update.
    void update(const char *payload) {
        size_t before = LogCapture::lines().size();
        KSMessageReply(subscriptionHandle, subscription, payload, nullptr);
        ASSERT_TRUE(waitUntil(
            [&] {
                for (size_t i = before; i < LogCapture::lines().size(); i++)
                    if (LogCapture::lines()[i].text.rfind("connMgrCB: ", 0) == 0)
                        return true;
                return false;
            },
            std::string("update ") + payload));
    }
    int allow1xCalls() { return downloadManager.count("allow1x"); }

    FakeService prefs{"com.velto.systemservice"};
    FakeService connectionManager{"com.velto.connectionmanager"};
    FakeService downloadManager{"com.velto.downloadmanager"};
    BusHandle *subscriptionHandle = nullptr;
    BusMessage *subscription = nullptr;
};

TEST_F(ConnMgr, UpdatesSetTheAvailabilityAndAsk1xOnceOffWifi) {
    EXPECT_EQ(getConnectionStatus(false), -1);
    spinFor(50);
    EXPECT_EQ(connectionManager.count("getstatus"), 0);
    subscribe();
    update(R"({"returnValue":true})");
    EXPECT_TRUE(LogCapture::has(LOG_DEBUG, R"(connMgrCB: OK response: {"returnValue":true})"));
    EXPECT_EQ(getConnectionStatus(true), -1);
    update(OFF_WIFI);
    EXPECT_EQ(getConnectionStatus(false), 1);
    EXPECT_TRUE(
        LogCapture::has(LOG_DEBUG, "connMgrCB: Connection: boolean:true, retVal: boolean:true"));
    ASSERT_TRUE(waitUntil([] { return get1xDownloadStatus() == 1; }, "1x confirmed"));
    EXPECT_EQ(downloadManager.lastPayload("allow1x"), R"({"value": true})");

    // Once confirmed, 1x is never asked again, off Wi-Fi or not.
    struct Step {
        const char *payload;
        int status;
        const char *logLine;
    } steps[] = {
        {R"({"isInternetConnectionAvailable":"FALSE","wifi":{"state":"off"}})", 0,
         "connMgrCB: Connection: string, retVal: NULL"},
        {R"({"isInternetConnectionAvailable":"TRUE","wifi":{"state":"connected"},"wan":{}})", 1,
         R"(connMgrCB: Unexpected payload: {"isInternetConnectionAvailable":"TRUE","wifi":{"state":"connected"},"wan":{}})"},
        {R"({"returnValue":true,"isInternetConnectionAvailable":null})", -1,
         "connMgrCB: Connection: null type, retVal: boolean:true"},
    };
    for (const Step &step : steps) {
        SCOPED_TRACE(step.payload);
        update(step.payload);
        EXPECT_EQ(getConnectionStatus(false), step.status);
        EXPECT_TRUE(LogCapture::has(LOG_DEBUG, step.logLine)) << LogCapture::dump();
    }
    spinFor(50);
    EXPECT_EQ(allow1xCalls(), 1);
    EXPECT_EQ(connectionManager.count("getstatus"), 1);
}

TEST_F(ConnMgr, ShutdownWithdraws1xBeforeCancelling) {
    subscribe();
    update(OFF_WIFI);
    ASSERT_TRUE(waitUntil([] { return get1xDownloadStatus() == 1; }, "1x confirmed"));
    LogCapture::clear();
    stopAllTimers();
    ASSERT_TRUE(
        waitUntil([&] { return allow1xCalls() == 2 && connectionManager.count("getstatus") == 2; },
                  "withdraw and cancel"));
    EXPECT_EQ(downloadManager.lastPayload("allow1x"), R"({"value": false})");
    EXPECT_EQ(connectionManager.lastPayload("getstatus"), CANCEL);
    // The two services hear on connections of their own; the daemon's log gives the send order.
    std::vector<std::string> sent;
    for (const LogLine &line : LogCapture::lines())
        if (line.text.find("Params") != std::string::npos ||
            line.text.find("Shutdown Connection Manager") != std::string::npos)
            sent.push_back(line.text);
    EXPECT_EQ(sent,
              (std::vector<std::string>{R"(setAllow1xDownloads: Params: {"value": false})",
                                        "shutdownConnMgr: Shutdown Connection Manager listener"}));
    EXPECT_TRUE(
        LogCapture::has(LOG_DEBUG, "shutdownConnMgr: Connection Manager listener is shutdown"));
    EXPECT_EQ(getConnectionStatus(false), -1);
    EXPECT_FALSE(shutdownConnMgr());
    EXPECT_TRUE(LogCapture::has(LOG_DEBUG, "shutdownConnMgr: Connection Manager listener offline"));
}

TEST_F(ConnMgr, RefusedSubscriptionIsCancelledAndMadeAgainOnNextNeed) {
    subscribe();
    update(R"({"returnValue":false,"errorCode":3,"errorText":"busy"})");
    ASSERT_TRUE(waitUntil([&] { return connectionManager.lastPayload("getstatus") == CANCEL; },
                          "the cancel"));
    subscription = (KSMessageUnref(subscription), nullptr);
    subscribe();
    EXPECT_EQ(connectionManager.count("getstatus"), 3);
}

TEST_F(ConnMgr, AbsentConnectionManagerCountsAsSubscribed) {
    connectionManager.stop();
    EXPECT_EQ(getConnectionStatus(true), -1);
    ASSERT_TRUE(waitUntil([] { return LogCapture::contains("connMgrCB: Ignoring response"); },
                          "the not-running reply"));
    EXPECT_EQ(getConnectionStatus(true), -1);
    spinFor(50);
    EXPECT_EQ(LogCapture::count("initializeConnMgr: About to request Connection Manager updates"),
              1);
}

} // namespace
