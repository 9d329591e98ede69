// A provisioning run in-process: the core's fakes plus the install service, key files under the
// test's root, and the application manager's listing as it is before and after the run.
#pragma once

#include "core_fixture.h"
#include "platform/json.h"
#include "provision/download.h"
#include "provision/install_status.h"
#include "sysinfo/sysinfo.h"

namespace prov {

using Lines = std::vector<std::string>;

inline const char CONFIG[] = "/usr/velto/vyxstage/vyxstage.conf";
inline const char DYNAMIC[] = "/var/usr/velto/vyxstage.conf";
inline const char CARRIER[] = "/usr/velto/vyxstage/carrier.conf";
inline const char USER_ICON[] = R"(\/media\/cryptofs\/apps\/usr\/velto\/applications\/p\/i.png)";

struct Pkg {
    std::string id;
    std::string version = "1.0";
    bool user = true;
    std::string icon = {}; // none when empty
};

inline std::string listing(const std::vector<Pkg> &packages) {
    std::string apps;
    for (const Pkg &p : packages)
        apps += (apps.empty() ? "" : ",") + std::string(R"({"id":")") + p.id + R"(","version":")" +
                p.version + R"(","userInstalled":)" + (p.user ? "true" : "false") +
                (p.icon.empty() ? "" : R"(,"icon":")" + p.icon + "\"") + "}";
    return R"({"returnValue":true,"apps":[)" + apps + "]}";
}

} // namespace prov

class ProvisionScenario : public CoreScenario {
  protected:
    void SetUp() override {
        CoreScenario::SetUp();
        appManager.handle("/", "listPackages", [this](BusHandle *h, BusMessage *m) {
            bool ended = LogCapture::contains("processEndPackageInfo: Called with failType");
            KSMessageReply(h, m, (ended ? after : before).c_str(), nullptr);
        });
        installService.reply("/", "install", core::OK).reply("/", "remove", core::OK);
    }

    // A run as the service core starts one, its system information gathered and the demo off:
    // for the demo's start, or to verify packages.
    void startRun(bool forTheDemo) {
        startWithDemo(core::DEMO_OFF);
        ASSERT_NE(call("downloadAppInfo", "{}").find("\"details\""), std::string::npos);
        setDownloadReason(forTheDemo);
        initiateFileDownload();
    }

    bool runEnded() const {
        return getDownloadStateMode() == DSM_IDLE &&
               LogCapture::contains("processEndPackageInfo: Called");
    }

    // The core application's pop-ups as "message" or "message percent".
    std::vector<std::string> popups() const {
        std::vector<std::string> shown;
        for (const std::string &launch : launches("popupalert")) {
            JsonTree root = jsonParse(launch.c_str());
            const JsonNode *params = json_find_first_label(root.get(), "params");
            const char *message = "", *percent = "";
            json_get_string(params->child, "message", &message);
            json_get_string(params->child, "percent", &percent);
            shown.push_back(*percent ? std::string(message) + " " + percent : message);
        }
        return shown;
    }

    std::string before = prov::listing({});
    std::string after = prov::listing({}); // once the install phase has ended
};
