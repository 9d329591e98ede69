#include "support/e2e_harness.h"

#include <csignal>
#include <functional>

#include "platform/json.h"

namespace {

std::string binary(const std::string &name) {
    return std::string(VYX_BINARY_DIR) + "/" + name;
}

bool running(GSubprocess *process) {
    return process && g_subprocess_get_identifier(process);
}

// A child's end wakes no main loop, so the wait looks every 50 ms.
bool poll(const std::function<bool()> &done, int timeoutMs) {
    for (int waited = 0; !done(); waited += 50) {
        if (waited >= timeoutMs)
            return false;
        spinFor(50);
    }
    return true;
}

} // namespace

std::string SimRecord::text(const std::string &key) const {
    JsonTree root = jsonParse(json.c_str());
    const JsonNode *label = root ? json_find_first_label(root.get(), key.c_str()) : nullptr;
    const JsonNode *value = label ? label->child : nullptr;
    if (value && value->type == JSON_STRING)
        return value->text;
    return value ? json_write(value) : "";
}

std::string shippedScenario(const std::string &file) {
    return std::string(VYX_SOURCE_DIR) + "/examples/scenarios/" + file;
}

ToolRun runTool(const std::string &tool, const std::vector<std::string> &args) {
    std::vector<std::string> argv{binary(tool)};
    argv.insert(argv.end(), args.begin(), args.end());
    std::vector<char *> pointers;
    for (std::string &arg : argv)
        pointers.push_back(arg.data());
    pointers.push_back(nullptr);
    ToolRun run;
    g_autofree char *out = nullptr;
    g_autofree char *err = nullptr;
    int wait = 0;
    g_autoptr(GError) error = nullptr;
    if (!g_spawn_sync(nullptr, pointers.data(), nullptr, G_SPAWN_DEFAULT, nullptr, nullptr, &out,
                      &err, &wait, &error)) {
        run.err = error->message;
        return run;
    }
    run.out = out ? out : "";
    run.err = err ? err : "";
    if (WIFEXITED(wait))
        run.status = WEXITSTATUS(wait);
    return run;
}

void E2eTest::SetUp() {
    BusTest::SetUp();
    m_client = std::make_unique<BusClient>();
}

void E2eTest::TearDown() {
    stop(m_daemon, SIGINT, "vyxstaged", false);
    stop(m_sim, SIGTERM, "vyxsim", true);
    m_watch.reset();
    m_client.reset();
    BusTest::TearDown();
}

void E2eTest::stop(GSubprocess *&process, int signal, const char *name, bool mustExitCleanly) {
    if (!process)
        return;
    if (running(process))
        g_subprocess_send_signal(process, signal);
    if (!poll([&] { return !running(process); }, 5000)) {
        ADD_FAILURE() << name << " did not end within 5 s of signal " << signal;
        g_subprocess_force_exit(process);
    }
    g_subprocess_wait(process, nullptr, nullptr);
    std::string log = readFile(std::string("/") + name + ".log");
    if (mustExitCleanly &&
        (!g_subprocess_get_if_exited(process) || g_subprocess_get_exit_status(process) != 0))
        ADD_FAILURE() << name << " did not exit cleanly; its output:\n" << log;
    if (log.find("Sanitizer") != std::string::npos || log.find("runtime error:") != log.npos)
        ADD_FAILURE() << name << " reported a sanitizer error:\n" << log;
    g_clear_object(&process);
}

std::string E2eTest::writeScenario(const std::string &name, const std::string &json) {
    writeFile("/scenarios/" + name, json);
    return rooted("/scenarios/" + name);
}

::testing::AssertionResult E2eTest::launch(GSubprocess *&process, const std::string &name,
                                           std::vector<std::string> args, const std::string &uri,
                                           const char *answer) {
    if (process && !running(process)) // a start after an end
        g_clear_object(&process);
    g_autoptr(GSubprocessLauncher) launcher =
        g_subprocess_launcher_new(G_SUBPROCESS_FLAGS_STDERR_MERGE);
    g_subprocess_launcher_set_stdout_file_path(launcher, (root() + "/" + name + ".log").c_str());
    args.insert(args.begin(), binary(name));
    std::vector<const char *> argv;
    for (const std::string &arg : args)
        argv.push_back(arg.c_str());
    argv.push_back(nullptr);
    g_autoptr(GError) error = nullptr;
    process = g_subprocess_launcher_spawnv(launcher, argv.data(), &error);
    if (!process)
        return ::testing::AssertionFailure() << "cannot start " << name << ": " << error->message;
    std::string reply;
    auto up = [&] {
        reply = call(uri);
        return !running(process) || reply.find(answer) != std::string::npos;
    };
    if (poll(up, 10000) && running(process))
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << name << " did not come up: " << reply << "\n"
                                         << readFile("/" + name + ".log");
}

::testing::AssertionResult E2eTest::startSim(const std::string &scenarioPath) {
    if (auto up = launch(m_sim, "vyxsim", {"--log", root() + "/vyxsim-calls.log", scenarioPath},
                         "velto://com.velto.sim/device", "\"returnValue\":true");
        !up)
        return up;
    m_watch = std::make_unique<BusClient>();
    m_watch->send("velto://com.velto.sim/watch",
                  "{\"subscribe\":true,\"kinds\":[\"call\",\"launch\",\"popup\",\"install\","
                  "\"preference\",\"activity\",\"display\",\"connectivity\",\"allow1x\","
                  "\"close\",\"store\",\"fault\"]}");
    return waitUntil([&] { return !m_watch->replies().empty(); }, "the simulator's watch");
}

// "runStatus" is answered at once, "demoState" only once the demo preference has been read.
::testing::AssertionResult E2eTest::startDaemon(bool settled) {
    return launch(m_daemon, "vyxstaged", {},
                  std::string("velto://com.velto.vyxService/") +
                      (settled ? "demoState" : "runStatus"),
                  settled ? "\"state\":\"o" : "\"running\":");
}

int E2eTest::waitForDaemonExit(int timeoutMs) {
    if (!m_daemon || !poll([&] { return !running(m_daemon); }, timeoutMs))
        return -1;
    g_subprocess_wait(m_daemon, nullptr, nullptr);
    return g_subprocess_get_if_exited(m_daemon) ? g_subprocess_get_exit_status(m_daemon) : -1;
}

void E2eTest::signalDaemon(int signal) {
    if (running(m_daemon))
        g_subprocess_send_signal(m_daemon, signal);
}

std::string E2eTest::call(const std::string &uri, const std::string &payload, int timeoutMs) {
    return m_client->call(uri, payload, timeoutMs);
}

std::vector<SimRecord> E2eTest::records(const std::string &kind) const {
    std::vector<SimRecord> out;
    for (const std::string &json : m_watch ? m_watch->replies() : std::vector<std::string>()) {
        SimRecord record{"", 0, json};
        record.kind = record.text("kind");
        record.seq = atol(record.text("seq").c_str());
        if (!record.kind.empty() && (kind.empty() || record.kind == kind))
            out.push_back(record);
    }
    return out;
}

std::string E2eTest::daemonLog() const {
    return readFile("/vyxstaged.log");
}

std::string E2eTest::dump() const {
    std::string out = "simulator records:\n", log = daemonLog();
    for (const SimRecord &record : records())
        out += "  " + record.json + "\n";
    return out + "daemon log (last 4000 bytes):\n" +
           log.substr(log.size() > 4000 ? log.size() - 4000 : 0);
}
