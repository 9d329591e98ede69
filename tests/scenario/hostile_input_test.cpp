// Whatever callers send and whatever the platform answers, the daemon keeps serving: no crash,
// no leak, no hang, and every method call still gets its reply.
#include "core_fixture.h"

#include "service/demo_state.h"

using namespace core;

namespace {

// Texts no well-behaved peer sends, and shapes a peer may send where another was expected. One
// text that does not parse stands for all: the parser's own tests cover the ways to fail.
const std::vector<std::string> &hostileTexts() {
    static const std::vector<std::string> texts = {
        "",
        "not json",
        "[]",
        "\"a string\"",
        "{}",
        "{\"returnValue\":\"maybe\",\"errorCode\":{},\"errorText\":[],\"serviceName\":null}",
        "{\"returnValue\":false,\"errorCode\":-1,\"errorText\":\"x is not running\","
        "\"serviceName\":\"x\"}",
        "{\"state\":\"true\",\"onBoot\":1,\"application\":{\"a\":1},\"$activity\":[1]}",
        "{\"$activity\":{\"trigger\":{\"event\":7,\"state\":{},\"dockMode\":\"TRUE\"}}}",
        "{\"running\":{\"id\":\"com.velto.app.vyxcore\"},\"values\":\"x\",\"locale\":\"de\"}",
        "{\"running\":[1,null,{\"id\":5,\"processid\":\"abc\"}],\"values\":[[],{}]}",
        "{\"token\":\"" + std::string(5000, 't') +
            "\",\"accountAlias\":\"a\",\"accountState\":\"s\","
            "\"deviceId\":\"" +
            std::string(5000, 'd') + "\",\"serverUrl\":\"" + std::string(5000, 'u') + "\"}",
        "{\"vyxStageRunning\":true,\"vyxStageDetails\":{\"application\":\"" +
            std::string(500, 'x') + "\",\"autoRun\":\"TRUE\"}}",
        "{\"isInternetConnectionAvailable\":\"yes\",\"wifi\":5,\"wan\":[]}",
        "\xff\xfe{\"bad\":\"utf8\xc3\"}",
    };
    return texts;
}

const char *const METHODS[] = {"demoState",       "setDemoState",  "toggleDemo",
                               "downloadAppInfo", "displayChange", "tapped"};

class HostileInput : public CoreScenario {
  protected:
    // The daemon is alive and serving when demoState still gets its reply.
    void expectServing() {
        std::string reply = call("demoState", "{}");
        EXPECT_NE(reply.find("\"state\":"), std::string::npos) << reply;
    }
};

TEST_F(HostileInput, EveryMethodAnswersWhateverItIsSent) {
    startWithDemo(DEMO_OFF);
    for (const std::string &payload : hostileTexts()) {
        for (const char *method : METHODS) {
            SCOPED_TRACE(std::string(method) + " <- " + payload.substr(0, 80));
            // downloadAppInfo holds a well-formed request until the gathering ends; the rest
            // answer at once.
            std::string reply = call(method, payload);
            if (std::string(method) != "downloadAppInfo" || !jsonParse(payload.c_str())) {
                EXPECT_FALSE(reply.empty());
            }
        }
    }
    expectServing();
    EXPECT_EQ(FakeHost::exits, 0);
}

// Every platform service answers every call with the same hostile text.
class HostilePlatform : public HostileInput, public testing::WithParamInterface<size_t> {};

TEST_P(HostilePlatform, FlowsSurviveAnyReply) {
    const std::string reply = hostileTexts()[GetParam()];
    auto answer = [reply](BusHandle *h, BusMessage *m) {
        KSMessageReply(h, m, reply.c_str(), nullptr);
    };
    for (const char *method : {"running", "launch", "close", "listPackages"})
        appManager.handle("/", method, answer);
    systemService.handle("/", "getPreferences", answer).handle("/", "setPreferences", answer);
    accounts.handle("/", "getAccountToken", answer).handle("/", "getServerUrl", answer);
    properties.handle("/systemProperties", "getSomeSysPropertiesObj", answer);
    deviceProfile.handle("/", "getDeviceId", answer);
    activities.handle("/", "create", answer);
    connMgr.handle("/", "getstatus", answer);
    startDaemon();

    client->send(SERVICE + std::string("demoState"), "{\"onBoot\":true}");
    spinFor(100);
    for (const char *method : {"setDemoState", "toggleDemo", "toggleDemo", "displayChange"})
        call(method, method == std::string("setDemoState")
                         ? "{\"state\":true}"
                         : "{\"$activity\":{\"trigger\":{\"event\":\"displayOff\"}}}");
    client->send(SERVICE + std::string("downloadAppInfo"), "{}");
    spinFor(200);
    expectServing();
    // A demo that came up at boot postpones the first expiry once.
    exitTimerCB(getExitTimer());
    if (FakeHost::exits == 0)
        exitTimerCB(getExitTimer());
    EXPECT_EQ(FakeHost::exits, 1);
}

INSTANTIATE_TEST_SUITE_P(Replies, HostilePlatform,
                         testing::Range(size_t(0), hostileTexts().size()));

} // namespace
