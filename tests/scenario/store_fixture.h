// The daemon in-process with its system information gathered from the fakes (token "tok", alias
// "a@b.c", device "dev-1", carrier "VZW", locale "en_US") and the store at a URL of the test's
// choosing, plus the easy handle a provisioning run would hand the store client.
#pragma once

#include "core_fixture.h"
#include "platform/curl_dl.h"
#include "store/app_listing.h"
#include "store_server.h"

class StoreScenario : public CoreScenario {
  protected:
    void startWith(const std::string &storeUrl,
                   const std::string &listing = R"({"returnValue":true,"apps":[]})") {
        accounts.reply("/", "getServerUrl",
                       R"({"returnValue":true,"serverUrl":")" + storeUrl + "\"}");
        appManager.reply("/", "listPackages", listing);
        startWithDemo(core::DEMO_OFF);
        ASSERT_NE(call("downloadAppInfo", "{}").find("\"details\""), std::string::npos);
        ASSERT_TRUE(waitUntil([] { return getPkgListJSON() != nullptr; }, "the package listing"));
        handle = curlEasyInit();
    }
    // The store got one request: a POST of the body to the method, announced by the two lines.
    static void expectOneRequest(StoreServer &store, const std::string &method,
                                 const std::string &body) {
        std::vector<StoreRequest> requests = store.requests();
        ASSERT_EQ(requests.size(), 1u);
        const std::string &head = requests[0].head;
        EXPECT_EQ(head.rfind("POST /" + method + " HTTP/1.1\r\n", 0), 0u) << head;
        EXPECT_NE(head.find("\r\nContent-Type: application/json\r\nContent-Length: " +
                            std::to_string(body.size()) + "\r\n"),
                  std::string::npos)
            << head;
        EXPECT_EQ(requests[0].body, body);
    }
    void TearDown() override {
        if (handle)
            sym_curl_easy_cleanup(handle);
        CoreScenario::TearDown();
    }
    CURL *handle = nullptr;
};
