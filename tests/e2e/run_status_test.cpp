// The run status as a person meets it: the history kept through a kill -9 in the middle of a run
// and through the idle exit, the leftovers of interrupted whole-file writes gone at the next
// start, and a run followed live with `vyxctl status --follow`.
#include <csignal>
#include <regex>
#include <set>

#include "support/e2e_harness.h"

namespace {

const char HISTORY[] = "/var/usr/velto/vyxstaged-runs.json";
const char RUN_STATUS[] = "velto://com.velto.vyxService/runStatus";
const char EARLIER_RUN[] =
    R"({"started":1795000000,"trigger":"boot","toInstall":0,)"
    R"("installed":0,"failed":0,"removed":0,"ended":1795000002,)"
    R"("outcome":"already current","reason":"nothing to install or remove"})";

using RunStatus = E2eTest;

TEST_F(RunStatus, HistoryOutlivesKillAndIdleExitAndARunIsFollowedLive) {
    std::string seeded = std::string("{\"runs\":[\n") + EARLIER_RUN + "\n]}\n";
    writeFile(HISTORY, seeded);
    ASSERT_TRUE(startSim(
        writeScenario("quick.json", R"({"extends":")" + shippedScenario("interrupted-run.json") +
                                        R"(","installService":{"durationMs":3000}})")));
    ASSERT_TRUE(startDaemon());
    EXPECT_EQ(call(RUN_STATUS, "[]"),
              R"({"returnValue":false, "errorCode":-1, "errorText":"JSON processing error"})");
    EXPECT_EQ(call(RUN_STATUS, R"({"subscribe":1})"),
              R"({"returnValue":false, "errorCode":-1, "errorText":"Invalid parameters"})");

    EXPECT_EQ(call("velto://com.velto.vyxService/verifyPackages"), R"({"returnValue":true})");
    ASSERT_TRUE(waitUntil([&] { return !records("install").empty(); }, "an install", 10000));
    EXPECT_NE(call(RUN_STATUS).find(R"("running":true,"run":{"started":)"), std::string::npos);
    signalDaemon(SIGKILL);
    waitForDaemonExit(5000);
    EXPECT_EQ(readFile(HISTORY), seeded);

    // What a kill in the middle of a whole-file write leaves beside its target.
    const std::string leftovers[] = {"/var/velto/ks2/roles/pub/com.velto.vyx.service.json.Ab12Cd",
                                     std::string(HISTORY) + ".x9Y8z7"};
    for (const std::string &leftover : leftovers)
        writeFile(leftover, "half");
    ASSERT_TRUE(startDaemon());
    for (const std::string &leftover : leftovers) // which names count as leftovers: unit RunHistory
        EXPECT_FALSE(fileExists(leftover)) << leftover;
    EXPECT_EQ(call(RUN_STATUS),
              std::string(R"({"returnValue":true,"running":false,"run":)") + EARLIER_RUN + "}");

    g_autoptr(GSubprocess) follow = g_subprocess_new(
        G_SUBPROCESS_FLAGS_STDOUT_PIPE, nullptr, (std::string(VYX_BINARY_DIR) + "/vyxctl").c_str(),
        "status", "--follow", nullptr);
    ASSERT_TRUE(follow);
    spinFor(300); // subscribed before the run starts, or it joins the run under way
    EXPECT_EQ(call("velto://com.velto.vyxService/verifyPackages"), R"({"returnValue":true})");
    g_autofree char *out = nullptr;
    ASSERT_TRUE(g_subprocess_communicate_utf8(follow, nullptr, nullptr, &out, nullptr, nullptr));
    EXPECT_EQ(g_subprocess_get_exit_status(follow), 0) << out;
    std::set<int> between; // overall percents shown on the way, 0 and 100 aside
    std::string text = out ? out : "";
    std::regex bar(R"(\] +(\d+)%  installing package)");
    for (std::sregex_iterator it(text.begin(), text.end(), bar), end; it != end; ++it)
        if (int percent = std::stoi((*it)[1]); percent > 0 && percent < 100)
            between.insert(percent);
    EXPECT_GE(between.size(), 2u) << text;
    EXPECT_NE(text.find("run ended: demonstration started: installed "), std::string::npos) << text;

    EXPECT_EQ(waitForDaemonExit(30000), 0) << "no idle exit";
    std::string status = runTool("vyxctl", {"status"}).out;
    EXPECT_NE(status.find("vyxstaged: not running"), std::string::npos) << status;
    EXPECT_NE(status.find("demo mode: on"), std::string::npos) << status;
    std::regex runs(R"(already current +nothing to install or remove\n.*)"
                    R"(demonstration started +installed \d of \d[^\n]*\n$)");
    EXPECT_TRUE(std::regex_search(status, runs)) << status;
}

} // namespace
