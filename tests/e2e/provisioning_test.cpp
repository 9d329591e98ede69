// Whole provisioning runs of the real daemon on the simulated platform, one scenario a row: what
// the store and the install service were asked, what the core application showed, how the
// demonstration was started in the end, and what was left on disk.
#include <glib.h>

#include <csignal>
#include <iterator>
#include <map>
#include <regex>
#include <sstream>
#include <tuple>

#include "support/e2e_harness.h"

namespace {

enum class Trigger { SwitchOn, Boot, Verify, Assign };

struct Row {
    const char *name;
    const char *scenario;
    Trigger trigger;
    const char *store;    // store requests in order: "profile" or the package asked about
    const char *installs; // install calls in order; nullptr: not compared
    const char *removes;  // remove calls in order
    // Pop-ups seen, each at least as often as listed; "!x": never; "?x": asked for, whatever
    // pacing made of it. Pacing may collapse the rest, but the last one listed is the last one
    // shown once the run has ended.
    const char *popups;
    int failType;                 // logged at the end of the install phase; -1: never logged
    const char *launch;           // the demonstration's start once the run is over; "": not started
    const char *profile;          // the saved profile list afterwards; nullptr: no file
    bool ends = true;             // false: the run stays open and is watched for a while
    const char *midRun = nullptr; // at the first install request: "SIGINT", or "simMethod payload"
    int promptMs = 4000;          // longest a "demoState" answer may take
};

#define ALL_ASKED "profile app.vyxcore vyx app.weather app.vyx vyx.v001 app.notes"
#define ALL_OF_THEM ALL_ASKED, "app.vyxcore vyx app.weather app.vyx vyx.v001 app.notes"
#define PROVISIONED "check startInstall startVYX", 0, "reboot", "com.velto.app.notes"
#define STORE_FAILED "check !startInstall disableVYX", 2, "", nullptr
using enum Trigger;

const Row rows[] = {
    {"FreshDeviceSwitchedOn", "provision-fresh.json", SwitchOn, ALL_OF_THEM, "",
     "check startInstall continueInstall continueInstall endInstall startVYX", 0, "reboot",
     "com.velto.app.notes"},
    {"CurrentDevice", "device-current.json", SwitchOn, ALL_ASKED, "", "",
     "check !startInstall startVYX", 0, "initialize", "com.velto.app.notes"},
    {"StoreDown", "store-down.json", SwitchOn, "", "", "", STORE_FAILED},
    {"StoreHttp500", "store-http500.json", SwitchOn, "profile app.vyxcore app.vyxcore", "", "",
     STORE_FAILED},
    {"StoreMalformed", "store-malformed.json", SwitchOn, "profile app.vyxcore app.vyxcore", "", "",
     STORE_FAILED},
    {"StoreTruncated", "store-truncated.json", SwitchOn, "profile", "", "", STORE_FAILED},
    {"StoreSlowerThanAPoll", "store-slow.json", SwitchOn, ALL_OF_THEM, "", PROVISIONED, true,
     nullptr, 8000},
    {"NoConnectionFor60s", "no-connection.json", SwitchOn, "", "", "",
     "check waitConnect waitConnect !startInstall disableVYX", 2, "", nullptr},
    {"InstallFails", "install-failed.json", SwitchOn, ALL_OF_THEM, "",
     "check startInstall !failConnect startVYX", 0, "reboot", "com.velto.app.notes"},
    {"InstallRefused", "install-refused.json", SwitchOn, ALL_OF_THEM, "",
     "check ?failConnect startInstall startVYX", 0, "reboot", "com.velto.app.notes"},
    {"LastInstallCanceled", "install-canceled.json", SwitchOn, ALL_OF_THEM, "",
     "check startInstall !startVYX failConnect", 3, "reboot", nullptr},
    {"InstallNeverReported", "install-silent.json", SwitchOn, ALL_OF_THEM, "",
     "check startInstall endInstall startVYX", 0, "reboot", "com.velto.app.notes"},
    {"StatusNeverAnswered", "status-silent.json", SwitchOn, ALL_OF_THEM, "", "check startInstall",
     -1, "", nullptr, false},
    {"UserPackageOffTheWhitelistRemoved", "whitelist-removal.json", SwitchOn, ALL_ASKED,
     "app.vyxcore vyx app.weather app.vyx vyx.v001", "app.chess", PROVISIONED},
    {"ProfileAddsAndDeparts", "profile-departed.json", SwitchOn, ALL_OF_THEM, "app.chess",
     PROVISIONED},
    {"AssignedConfigurationThenVerify", "assign-config.json", Assign, "app.notes app.vyx vyx.v001",
     "app.notes", "", "check startVYX", 0, "initialize", nullptr},
    {"BootWithTheDemonstrationMissing", "boot-demo-missing.json", Boot, ALL_OF_THEM, "",
     PROVISIONED},
    {"SigintMidRun", "interrupted-run.json", Verify, nullptr, nullptr, "", "check", -1, "", nullptr,
     false, "SIGINT"},
    {"InstallServiceNotRunning", "install-service-down.json", SwitchOn, "profile app.vyxcore", "",
     "", "check !startInstall", -1, "", nullptr, false},
    {"ApplicationManagerGoneMidRun", "fresh-device.json", SwitchOn, ALL_OF_THEM, "", "check", 0, "",
     "com.velto.app.notes", false, "setFault {\"notRunning\":[\"com.velto.applicationManager\"]}"},
};

// What `vyxctl status` says of the run's end: its outcome, then part of the reason.
const std::map<std::string, std::pair<std::string, std::string>> told = {
    {"FreshDeviceSwitchedOn", {"demonstration started", "installed 6 of 6"}},
    {"CurrentDevice", {"already current", "nothing to install or remove"}},
    {"StoreDown",
     {"failed", "the store could not be reached (getUserInstalledApps_ext2: Failed to connect"}},
    {"StoreHttp500",
     {"failed", "the store answered HTTP 500 to appDetail_ext2 for com.velto.app.vyxcore; the "
                "demonstration application is not installed; the core application was told "
                "\"disableVYX\""}},
    {"StoreMalformed",
     {"failed",
      "the store's reply to appDetail_ext2 for com.velto.app.vyxcore was not understood"}},
    {"NoConnectionFor60s", {"failed", "no network connection within 60 seconds"}},
    {"InstallFails",
     {"demonstration started", "installed 4 of 6; the install service refused "
                               "com.velto.app.weather (Install of com.velto.app.weather refused); "
                               "the install of com.velto.vyx.v001 failed at "}},
    {"InstallRefused",
     {"demonstration started", "the install service refused com.velto.app.vyxcore"}},
    {"InstallNeverReported",
     {"demonstration started", "the install service never reported on com.velto.app.weather"}},
    {"StatusNeverAnswered",
     {"failed", "interrupted (SIGINT) while installing package 1 of 6 (com.velto.app.vyxcore), 0%; "
                "the install service never answered a status request"}},
};

const char DEMO_STATE[] = "velto://com.velto.vyxService/demoState";
const char HISTORY[] = "/var/usr/velto/vyxstaged-runs.json";
const char ROLE_SOURCE[] = "/usr/velto/vyxstage/com.velto.vyx.service.json";

std::string shortId(std::string id) {
    return id.rfind("com.velto.", 0) == 0 ? id.substr(10) : id;
}

void join(std::string &list, const std::string &item) {
    list += (list.empty() ? "" : " ") + item;
}

// Every file below `dir`, by path, with its content.
void snapshot(const std::string &dir, std::map<std::string, std::string> &files) {
    g_autoptr(GDir) listing = g_dir_open(dir.c_str(), 0, nullptr);
    while (const char *name = listing ? g_dir_read_name(listing) : nullptr) {
        std::string path = dir + "/" + name;
        g_autofree char *content = nullptr;
        if (g_file_test(path.c_str(), G_FILE_TEST_IS_DIR))
            snapshot(path, files);
        else if (g_file_get_contents(path.c_str(), &content, nullptr, nullptr))
            files[path] = content;
    }
}

void PrintTo(const Row &row, std::ostream *out) { // the row's name, not its bytes, in listings
    *out << row.name;
}

class ProvisioningRun : public E2eTest, public ::testing::WithParamInterface<Row> {
  protected:
    // Waits for `done`, asking "demoState" all along: the service must answer promptly whatever
    // the run is doing.
    ::testing::AssertionResult watch(const std::function<bool()> &done, const std::string &what,
                                     int timeoutMs = 120000) {
        gint64 end = g_get_monotonic_time() + timeoutMs * G_GINT64_CONSTANT(1000);
        while (!done()) {
            if (g_get_monotonic_time() > end)
                return ::testing::AssertionFailure() << "no " << what << "\n" << dump();
            gint64 asked = g_get_monotonic_time();
            std::string state = call(DEMO_STATE, "{}", GetParam().promptMs + 5000);
            gint64 took = (g_get_monotonic_time() - asked) / 1000;
            if (state.rfind(R"({"returnValue":"true","state":")", 0) != 0 ||
                took > GetParam().promptMs)
                return ::testing::AssertionFailure()
                       << "demoState answered '" << state << "' after " << took << " ms\n"
                       << dump();
            spinFor(200);
        }
        return ::testing::AssertionSuccess();
    }
    std::vector<SimRecord> calls(const char *method) const {
        std::vector<SimRecord> out;
        for (const SimRecord &r : records("call"))
            if (r.text("service") == "com.velto.appInstallService" && r.text("method") == method)
                out.push_back(r);
        return out;
    }
    // The demonstration's start after the n-th run wrote its details (the run's last step).
    std::string finalLaunch(int nth = 1) const {
        long after = -1;
        for (const SimRecord &r : records("preference"))
            if (r.text("value").find("autoRun") != std::string::npos && --nth == 0)
                after = r.seq;
        for (const SimRecord &r : records("launch"))
            if (after >= 0 && r.seq > after && r.text("id") == "com.velto.app.vyx")
                return r.text("action") + (r.text("ok") == "true" ? "" : " (failed)");
        return "";
    }
    std::vector<std::string> popups() const {
        std::vector<std::string> out;
        for (const SimRecord &r : records("popup"))
            out.push_back(r.text("message"));
        return out;
    }
};

TEST_P(ProvisioningRun, EndsAsTheScenarioDemands) {
    const Row &row = GetParam();
    // The shipped fresh device installs at a pace a person can watch; here it need not.
    std::string scenario = shippedScenario(row.scenario);
    if (scenario == shippedScenario("fresh-device.json"))
        scenario = writeScenario("quick.json", R"({"extends":")" + scenario +
                                                   R"(","installService":{"durationMs":3000}})");
    ASSERT_TRUE(startSim(scenario));
    ASSERT_TRUE(startDaemon());
    std::map<std::string, std::string> before;
    snapshot(rooted("/var"), before);

    const char *trigger[][2] = {{"setDemoState", R"({"state":true})"},
                                {"demoState", R"({"onBoot":true})"},
                                {"verifyPackages", "{}"},
                                {"assignConfigFile", R"({"name":"com.velto.app.weather/)"
                                                     R"(vyxstage.conf","action":"copy"})"}};
    // Through the command-line client, which prints the reply.
    ToolRun client = runTool(
        "vyxctl", {std::string("velto://com.velto.vyxService/") + trigger[int(row.trigger)][0],
                   trigger[int(row.trigger)][1]});
    EXPECT_EQ(client.out, row.trigger == Boot ? "{\"returnValue\":\"true\",\"state\":\"on\"}\n"
                                              : "{\"returnValue\":true}\n");
    EXPECT_EQ(client.status, 0) << client.err;

    if (row.midRun) {
        ASSERT_TRUE(watch([&] { return !records("install").empty(); }, "install request"));
        std::string action = row.midRun;
        if (action == "SIGINT") {
            signalDaemon(SIGINT);
            ASSERT_EQ(waitForDaemonExit(10000), 0) << dump();
            std::map<std::string, std::string> after;
            snapshot(rooted("/var"), after);
            std::string history = after[rooted(HISTORY)];
            after.erase(rooted(HISTORY));
            EXPECT_EQ(after, before); // nothing lost, nothing half written, nothing left over
            EXPECT_NE(history.find(R"("outcome":"failed","reason":"interrupted (SIGINT) while )"),
                      std::string::npos)
                << history;
            return;
        }
        size_t blank = action.find(' ');
        EXPECT_NE(call("velto://com.velto.sim/" + action.substr(0, blank), action.substr(blank + 1))
                      .find("true"),
                  std::string::npos);
    }
    std::istringstream wanted(row.popups);
    std::vector<std::string> want{std::istream_iterator<std::string>(wanted), {}};
    std::string last =
        *std::find_if(want.rbegin(), want.rend(), [](auto &w) { return isalpha(w[0]); });
    auto lastShown = [&] { return popups().size() && popups().back() == last; };
    std::string failed = "Called with failType ";
    if (row.ends) {
        ASSERT_TRUE(watch([&] { return *row.launch ? !finalLaunch().empty() : lastShown(); },
                          "end of the run"));
        // The last pop-up may still wait out its pacing when the demonstration starts.
        waitUntil(lastShown, last, 10000);
    } else {
        // A run that stays open: nothing may end it early, and the service keeps answering.
        if (row.failType >= 0) {
            ASSERT_TRUE(watch([&] { return daemonLog().find(failed) != std::string::npos; },
                              "end of the install phase"));
        }
        gint64 until = g_get_monotonic_time() + 8 * G_USEC_PER_SEC;
        ASSERT_TRUE(watch([&] { return g_get_monotonic_time() > until; }, "8 s"));
        EXPECT_EQ(waitForDaemonExit(0), -1) << "the daemon ended";
        // Without an answer to its status request the service asks no second time.
        EXPECT_LE(calls("status").size(), row.failType < 0 ? 1u : 99u);
    }

    std::string store, installs, removes;
    for (const SimRecord &r : records("store"))
        join(store, r.text("method") == "appDetail_ext2" ? shortId(r.text("package")) : "profile");
    std::regex installPayload(
        R"(\{'catalogId':\d+,'id':'([^']+)','title':'[^']*','version':'[\d.]+','vendor':7,)"
        R"('vendorUrl':'http://www.velto.example/','iconUrl':'(http://127.0.0.1:\d+/bazaro/))"
        R"(icon/\1.png','ipkUrl':'\2ipk/\1_[\d.]+_all.ipk',)"
        R"('authToken':'SIMTOKEN-7f3a9c','deviceId':'VX4D00A1B2C3D4E5'\})");
    std::regex removePayload(R"re(\{\\"id\\":\\"([^\\"]+)\\"\})re"); // escapes kept
    for (auto [method, pattern, list] : {std::tuple{"install", &installPayload, &installs},
                                         std::tuple{"remove", &removePayload, &removes}})
        for (const SimRecord &r : calls(method)) {
            std::smatch id;
            std::string text = r.text("payload");
            EXPECT_TRUE(std::regex_match(text, id, *pattern)) << text;
            join(*list, shortId(id.size() > 1 ? id[1].str() : text));
        }
    // Switching on also launches the demonstration. When a fast failing run has ended before
    // that launch's refusal arrives, the refusal starts a second run, as any failed launch does.
    std::string expected = row.store ? row.store : store;
    if (!expected.empty() && store == expected + " " + expected)
        store = expected;
    EXPECT_EQ(store, expected);
    EXPECT_EQ(installs, row.installs ? row.installs : installs);
    EXPECT_EQ(removes, row.removes);

    std::vector<std::string> shown = popups();
    for (const std::string &w : want) {
        if (w[0] == '?') { // the daemon's log names every pop-up it is asked for, queued or not
            std::string log = daemonLog(), asked = w.substr(1);
            EXPECT_TRUE(log.find("'" + asked + "'") != log.npos ||
                        log.find('"' + asked + '"') != log.npos)
                << w;
            continue;
        }
        auto seen = std::count(shown.begin(), shown.end(), w[0] == '!' ? w.substr(1) : w);
        EXPECT_TRUE(w[0] == '!' ? seen == 0 : seen >= std::count(want.begin(), want.end(), w))
            << w << " shown " << seen << " times";
    }
    EXPECT_EQ(row.ends && !shown.empty() ? shown.back() : last, last);
    for (const char *message : {"waitConnect", "continueInstall"}) { // progress never goes back
        std::vector<int> percents;
        for (const SimRecord &r : records("popup"))
            if (r.text("message") == message)
                percents.push_back(atoi(r.text("percent").c_str()));
        EXPECT_TRUE(std::is_sorted(percents.begin(), percents.end()) &&
                    (std::count(want.begin(), want.end(), message) < 2 ||
                     (percents.size() > 1 && percents.front() < percents.back())) &&
                    (percents.empty() || percents.back() <= 100))
            << message;
    }

    std::string log = daemonLog();
    size_t ends = 0;
    for (size_t at = log.find(failed); at != std::string::npos; at = log.find(failed, at + 1)) {
        EXPECT_EQ(log.substr(at + failed.size(), 1), std::to_string(row.failType));
        ++ends;
    }
    EXPECT_EQ(ends > 0, row.failType >= 0);
    EXPECT_EQ(finalLaunch(), row.launch);

    if (row.profile)
        EXPECT_EQ(readFile("/var/usr/velto/vyxstageprofile.list"), row.profile);
    else
        EXPECT_FALSE(fileExists("/var/usr/velto/vyxstageprofile.list"));
    for (const char *dir : {"/var/velto/ks2/roles/prv/", "/var/velto/ks2/roles/pub/"}) {
        std::string copy = std::string(dir) + "com.velto.vyx.service.json";
        if (row.trigger == SwitchOn || fileExists(copy)) {
            EXPECT_EQ(readFile(copy), readFile(ROLE_SOURCE)) << copy;
        }
    }

    if (auto it = told.find(row.name); it != told.end()) {
        if (!row.ends) {
            signalDaemon(SIGINT);
            EXPECT_EQ(waitForDaemonExit(10000), 0);
        }
        waitUntil([&] { return readFile(HISTORY).find("outcome") != std::string::npos; },
                  "the run in the history");
        std::string status = runTool("vyxctl", {"status"}).out, line;
        for (std::istringstream lines(status); std::getline(lines, line);)
            if (line.find(it->second.second) != std::string::npos)
                break;
        EXPECT_NE(line.find("  " + it->second.first + "  "), std::string::npos) << status;
        EXPECT_NE(line.find(it->second.second), std::string::npos) << status;
    }

    if (row.trigger == Assign) {
        EXPECT_EQ(readFile("/var/usr/velto/vyxstage.conf"),
                  readFile("/media/cryptofs/apps/usr/velto/applications/com.velto.app.weather/"
                           "vyxstage.conf"));
        // A second run with the assigned configuration: everything it names is current now.
        EXPECT_EQ(call("velto://com.velto.vyxService/verifyPackages"), R"({"returnValue":true})");
        ASSERT_TRUE(watch([&] { return !finalLaunch(2).empty(); }, "second final launch"));
        EXPECT_EQ(finalLaunch(2), "initialize");
        EXPECT_EQ(calls("install").size(), 1u);
    }
}

INSTANTIATE_TEST_SUITE_P(Scenarios, ProvisioningRun, ::testing::ValuesIn(rows),
                         [](const auto &info) { return std::string(info.param.name); });

} // namespace
