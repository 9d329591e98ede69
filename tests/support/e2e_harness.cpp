#include "support/e2e_harness.h"

#include <glib.h>
#include <glib/gstdio.h>

#include <algorithm>
#include <csignal>
#include <sstream>

#include "platform/json.h"

namespace {

std::string binary(const std::string &name) {
    return std::string(VYX_BINARY_DIR) + "/" + name;
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
    if (g_subprocess_get_identifier(process))
        g_subprocess_send_signal(process, signal);
    for (int i = 0; i < 100 && g_subprocess_get_identifier(process); ++i)
        spinFor(50);
    if (g_subprocess_get_identifier(process)) {
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

::testing::AssertionResult E2eTest::startSim(const std::string &scenarioPath) {
    g_autoptr(GSubprocessLauncher) launcher =
        g_subprocess_launcher_new(G_SUBPROCESS_FLAGS_STDERR_MERGE);
    g_subprocess_launcher_set_stdout_file_path(launcher, (root() + "/vyxsim.log").c_str());
    std::string log = root() + "/vyxsim-calls.log";
    g_autoptr(GError) error = nullptr;
    m_sim = g_subprocess_launcher_spawn(launcher, &error, binary("vyxsim").c_str(), "--log",
                                        log.c_str(), scenarioPath.c_str(), nullptr);
    if (!m_sim)
        return ::testing::AssertionFailure() << "cannot start vyxsim: " << error->message;
    // Up when its control interface answers; the bus layer answers for it until then.
    for (int i = 0; i < 200; ++i) {
        if (!g_subprocess_get_identifier(m_sim))
            return ::testing::AssertionFailure() << "vyxsim ended early:\n"
                                                 << readFile("/vyxsim.log");
        std::string reply = call("velto://com.velto.sim/device", "{}", 1000);
        if (reply.find("\"returnValue\":true") != std::string::npos) {
            m_watch = std::make_unique<BusClient>();
            m_watch->send(
                "velto://com.velto.sim/watch",
                "{\"subscribe\":true,\"kinds\":[\"call\",\"launch\",\"popup\",\"install\","
                "\"preference\",\"activity\",\"display\",\"connectivity\",\"allow1x\","
                "\"close\",\"store\",\"fault\"]}");
            return waitUntil([&] { return !m_watch->replies().empty(); }, "the simulator's watch");
        }
        spinFor(50);
    }
    return ::testing::AssertionFailure() << "vyxsim did not come up:\n" << readFile("/vyxsim.log");
}

::testing::AssertionResult E2eTest::startDaemon(bool settled) {
    if (m_daemon && !g_subprocess_get_identifier(m_daemon)) // a start after an end
        g_clear_object(&m_daemon);
    g_autoptr(GSubprocessLauncher) launcher =
        g_subprocess_launcher_new(G_SUBPROCESS_FLAGS_STDERR_MERGE);
    g_subprocess_launcher_set_stdout_file_path(launcher, (root() + "/vyxstaged.log").c_str());
    g_autoptr(GError) error = nullptr;
    m_daemon = g_subprocess_launcher_spawn(launcher, &error, binary("vyxstaged").c_str(), nullptr);
    if (!m_daemon)
        return ::testing::AssertionFailure() << "cannot start vyxstaged: " << error->message;
    g_autoptr(GDBusConnection) bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error);
    if (!bus)
        return ::testing::AssertionFailure() << "no session bus: " << error->message;
    for (int i = 0; i < 200; ++i) {
        if (!g_subprocess_get_identifier(m_daemon))
            return ::testing::AssertionFailure() << "vyxstaged ended early:\n" << daemonLog();
        g_autoptr(GVariant) owned = g_dbus_connection_call_sync(
            bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            "NameHasOwner", g_variant_new("(s)", "com.velto.vyxService"), G_VARIANT_TYPE("(b)"),
            G_DBUS_CALL_FLAGS_NONE, 1000, nullptr, nullptr);
        gboolean has = FALSE;
        if (owned)
            g_variant_get(owned, "(b)", &has);
        if (has) {
            if (!settled)
                return ::testing::AssertionSuccess();
            std::string state = call("velto://com.velto.vyxService/demoState", "{}");
            if (state.find("\"state\":\"on\"") != std::string::npos ||
                state.find("\"state\":\"off\"") != std::string::npos)
                return ::testing::AssertionSuccess();
            return ::testing::AssertionFailure() << "demo state did not settle: " << state << "\n"
                                                 << dump();
        }
        spinFor(50);
    }
    return ::testing::AssertionFailure() << "vyxstaged did not register:\n" << daemonLog();
}

int E2eTest::waitForDaemonExit(int timeoutMs) {
    for (int waited = 0; m_daemon && g_subprocess_get_identifier(m_daemon) && waited < timeoutMs;
         waited += 50)
        spinFor(50);
    if (!m_daemon || g_subprocess_get_identifier(m_daemon))
        return -1;
    g_subprocess_wait(m_daemon, nullptr, nullptr);
    return g_subprocess_get_if_exited(m_daemon) ? g_subprocess_get_exit_status(m_daemon) : -1;
}

void E2eTest::signalDaemon(int signal) {
    if (m_daemon && g_subprocess_get_identifier(m_daemon))
        g_subprocess_send_signal(m_daemon, signal);
}

std::string E2eTest::call(const std::string &uri, const std::string &payload, int timeoutMs) {
    return m_client->call(uri, payload, timeoutMs);
}

std::string E2eTest::sim(const std::string &method, const std::string &payload) {
    return call("velto://com.velto.sim/" + method, payload);
}

std::vector<SimRecord> E2eTest::records(const std::string &kind) const {
    if (m_watch) {
        const auto &replies = m_watch->replies();
        for (; m_parsed < replies.size(); ++m_parsed) {
            SimRecord record;
            record.json = replies[m_parsed];
            record.kind = record.text("kind");
            record.seq = atol(record.text("seq").c_str());
            if (!record.kind.empty())
                m_records.push_back(record);
        }
    }
    std::vector<SimRecord> out;
    for (const SimRecord &record : m_records)
        if (kind.empty() || record.kind == kind)
            out.push_back(record);
    return out;
}

::testing::AssertionResult
E2eTest::waitForRecord(const std::string &kind, const std::function<bool(const SimRecord &)> &match,
                       const std::string &what, int timeoutMs) {
    auto found = [&] { return std::ranges::any_of(records(kind), match); };
    if (waitUntil(found, what, timeoutMs))
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "no " << kind << " record: " << what << "\n" << dump();
}

std::string E2eTest::daemonLog() const {
    return readFile("/vyxstaged.log");
}

std::string E2eTest::dump() const {
    std::ostringstream out;
    out << "simulator records:\n";
    for (const SimRecord &record : records())
        out << "  " << record.json << "\n";
    out << "daemon log (last 4000 bytes):\n";
    std::string log = daemonLog();
    out << (log.size() > 4000 ? log.substr(log.size() - 4000) : log);
    return out.str();
}
