// The whole daemon in-process with the platform services that the service core talks to,
// played by fakes whose answers a test sets before (or while) the daemon runs.
#pragma once

#include <syslog.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "bus_test.h"
#include "fake_service.h"
#include "platform_fakes.h"
#include "service/app_control.h"
#include "service/service.h"

namespace core {

inline const char SERVICE[] = "velto://com.velto.vyxService/";
inline const char OK[] = R"({"returnValue":true})";
inline const char DEMO_OFF[] = R"({"returnValue":true,"vyxStageRunning":false})";
inline const char DEMO_ON[] = R"({"returnValue":true,"vyxStageRunning":true})";
inline const char NOTHING_RUNNING[] = R"({"returnValue":true,"running":[]})";

inline std::string negative(const std::string &text) {
    return R"({"returnValue":false, "errorCode":-1, "errorText":")" + text + "\"}";
}

inline std::string demoStateReply(const char *state) {
    return std::string(R"({"returnValue":"true","state":")") + state + "\"}";
}

inline std::string runningList(const std::vector<std::pair<std::string, int>> &apps) {
    std::string list = R"({"returnValue":true,"running":[)";
    for (size_t i = 0; i < apps.size(); ++i)
        list += (i ? "," : "") + std::string(R"({"id":")") + apps[i].first + R"(","processid":")" +
                std::to_string(apps[i].second) + "\"}";
    return list + "]}";
}

inline std::string launchOf(const char *appId, const std::string &params) {
    return std::string(R"({"id":")") + appId + R"(","params":{)" + params + "}}";
}

inline std::string popup(const char *message, const char *name = "", const char *percent = "") {
    return launchOf(VYX_CORE_APP_ID, std::string(R"("action":"popupalert", "message":")") +
                                         message + R"(", "name":")" + name + R"(", "percent":")" +
                                         percent + "\"");
}

inline const std::string INITIALIZE = launchOf("com.velto.app.vyx", R"("action":"initialize" )");
inline const std::string CORE_START = launchOf(VYX_CORE_APP_ID, R"("action":"startVyx")");
inline const std::string CORE_STOP = launchOf(VYX_CORE_APP_ID, R"("action":"stopVyx")");
inline const std::string DEMO_EXIT = launchOf("com.velto.app.vyx", R"("action":"exit")");
inline const std::string PLAY_VIDEO =
    launchOf("com.velto.app.vyx", R"("action":"power" ,"playVideo":true)");

// Names parameterized cases after their row's "name".
inline const auto rowName = [](const auto &info) { return std::string(info.param.name); };

} // namespace core

class CoreScenario : public BusTest, protected PlatformFakes {
  protected:
    void SetUp() override {
        BusTest::SetUp();
        appManager
            .handle("/", "running",
                    [this](BusHandle *h, BusMessage *m) {
                        KSMessageReply(h, m, running.c_str(), nullptr);
                    })
            .reply("/", "launch", core::OK)
            .reply("/", "close", core::OK)
            .reply("/", "listPackages", R"({"returnValue":true,"apps":[]})");
        systemService
            .handle(
                "/", "getPreferences",
                [this](BusHandle *h, BusMessage *m) {
                    std::string payload = KSMessageGetPayload(m);
                    if (payload.find("locale") != std::string::npos) {
                        KSMessageReply(
                            h, m,
                            R"({"returnValue":true,"locale":{"languageCode":"en","countryCode":"US"}})",
                            nullptr);
                    } else if (holdPrefReads) {
                        held.push_back({h, (KSMessageRef(m), m)});
                    } else {
                        KSMessageReply(h, m, demoPref.c_str(), nullptr);
                    }
                })
            .reply("/", "setPreferences", core::OK);
        accounts
            .reply(
                "/", "getAccountToken",
                R"({"returnValue":true,"token":"tok","accountAlias":"a@b.c","accountState":"active","uniqueId":"u1"})")
            .reply("/", "getServerUrl",
                   R"({"returnValue":true,"serverUrl":"https://store.example"})");
        properties.reply(
            "/systemProperties", "getSomeSysPropertiesObj",
            R"({"returnValue":true,"values":[{"com.velto.properties.DMCARRIER":"VZW"},{"com.velto.properties.machineName":"tarsk"}]})");
        deviceProfile.reply("/", "getDeviceId", R"({"returnValue":true,"deviceId":"dev-1"})");
        activities.reply("/", "create", core::OK);
        connMgr.silent("/", "getstatus");
        client = std::make_unique<BusClient>();
    }

    void TearDown() override {
        for (auto &call : held)
            KSMessageUnref(call.second);
        serviceFinish();
        client.reset();
        for (FakeService *fake : allFakes())
            fake->stop();
        BusTest::TearDown();
    }

    // Starts every fake not listed as absent, then the daemon.
    void startDaemon(const std::vector<FakeService *> &absent = {}) {
        for (FakeService *fake : allFakes()) {
            if (std::ranges::find(absent, fake) == absent.end()) {
                ASSERT_TRUE(fake->start());
            }
        }
        ASSERT_TRUE(serviceStart());
    }

    // Starts the daemon and waits until it has evaluated the stored preference.
    void startWithDemo(const char *preference) {
        demoPref = preference;
        startDaemon();
        ASSERT_TRUE(
            waitUntil([] { return LogCapture::contains("determineKovaDemoPrefCB: payload"); },
                      "the preference reply"));
    }

    // The method's calls stay unanswered until answerHeld.
    void hold(FakeService &fake, const std::string &category, const std::string &method) {
        fake.handle(category, method, [this](BusHandle *h, BusMessage *m) {
            held.push_back({h, (KSMessageRef(m), m)});
        });
    }
    void answerHeld(const std::string &payload) {
        for (auto &call : held) {
            KSMessageReply(call.first, call.second, payload.c_str(), nullptr);
            KSMessageUnref(call.second);
        }
        held.clear();
    }

    std::string call(const std::string &method, const std::string &payload) {
        return client->call(core::SERVICE + method, payload);
    }

    static std::vector<std::string> payloads(const FakeService &fake, const std::string &method) {
        std::vector<std::string> found;
        for (const RecordedCall &call : fake.calls(method))
            found.push_back(call.payload);
        return found;
    }

    // The application manager's launch and close requests, in the order they arrived.
    std::vector<std::string> appRequests() const {
        std::vector<std::string> found;
        for (const RecordedCall &call : FakeService::all())
            if (call.service == "com.velto.applicationManager" &&
                (call.method == "launch" || call.method == "close"))
                found.push_back(call.method + " " + call.payload);
        return found;
    }

    // Payloads of the launches whose text holds the marker (or, with wanted false, lacks it).
    std::vector<std::string> launches(const std::string &marker, bool wanted = true) const {
        std::vector<std::string> found;
        for (const std::string &request : appRequests())
            if (request.rfind("launch ", 0) == 0 &&
                (request.find(marker) != std::string::npos) == wanted)
                found.push_back(request.substr(sizeof "launch " - 1));
        return found;
    }

    std::unique_ptr<BusClient> client; // on the test's private bus, so made in SetUp

    std::string demoPref = core::DEMO_OFF;
    bool holdPrefReads = false; // demo preference reads stay unanswered until answerHeld
    std::vector<std::pair<BusHandle *, BusMessage *>> held;
    std::string running = core::NOTHING_RUNNING;
};
