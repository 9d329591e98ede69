// End-to-end ground: a private bus, vyxsim playing the platform from a scenario, and the real
// vyxstaged binary; the test reads what the simulator recorded as it happens.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <gio/gio.h>

#include "support/bus_test.h"
#include "support/fake_service.h"

// One thing the simulator saw (see examples/scenarios/README.md for the kinds).
struct SimRecord {
    std::string kind;
    long seq = 0;
    std::string json; // the whole record
    // A member's value: the text of a string or number, "true"/"false"/"null", or the JSON text
    // of an object or array; "" when absent.
    std::string text(const std::string &key) const;
};

struct ToolRun {
    int status = -1; // exit status; -1 when it did not exit normally
    std::string out;
    std::string err;
};
// Runs build/vyxsim (or another built tool) to its end.
ToolRun runTool(const std::string &tool, const std::vector<std::string> &args);

std::string shippedScenario(const std::string &file); // examples/scenarios/FILE

class E2eTest : public BusTest {
  protected:
    void SetUp() override;
    void TearDown() override;

    // Writes a scenario below the root; "extends" may name a shipped scenario by its path.
    std::string writeScenario(const std::string &name, const std::string &json);
    ::testing::AssertionResult startSim(const std::string &scenarioPath);
    // Up once it answers; `settled` also waits until it has read the demo preference, so a
    // test's first call can't race that read.
    ::testing::AssertionResult startDaemon(bool settled = true);
    // The daemon's exit status once it ended by itself; -1 while it runs or when it was killed.
    int waitForDaemonExit(int timeoutMs);
    void signalDaemon(int signal);

    // Calls any method and returns its first reply ("" when none came).
    std::string call(const std::string &uri, const std::string &payload = "{}",
                     int timeoutMs = 5000);

    // Records received so far, of one kind or all.
    std::vector<SimRecord> records(const std::string &kind = "") const;
    // The daemon's log (its lines are mirrored to stderr on a host).
    std::string daemonLog() const;
    std::string dump() const;

  private:
    // Starts a built program, its output in NAME.log below the root, and waits until a call to
    // `uri` is answered by the program, `answer` in its reply, rather than by the bus for it.
    ::testing::AssertionResult launch(GSubprocess *&process, const std::string &name,
                                      std::vector<std::string> args, const std::string &uri,
                                      const char *answer);
    void stop(GSubprocess *&process, int signal, const char *name, bool mustExitCleanly);

    std::unique_ptr<BusClient> m_client;
    std::unique_ptr<BusClient> m_watch;
    GSubprocess *m_sim = nullptr;
    GSubprocess *m_daemon = nullptr;
};
