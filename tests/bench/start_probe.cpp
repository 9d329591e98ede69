// Starts a bus service and measures what its callers see: the time from exec to its name being
// owned, its memory once idle, and the "demoState" round trip with the service's CPU time per
// call. Prints one line of NAME=VALUE figures; scripts/bench runs it on the daemon and on its
// floor in turn.
//   start_probe [-n CALLS] [-s SETTLE_MS] NAME PROGRAM [ARGS...]
#include <gio/gio.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Wait {
    GMainLoop *loop;
    bool owned;
};

void ownerChanged(GDBusConnection *, const gchar *, const gchar *, const gchar *, const gchar *,
                  GVariant *parameters, gpointer data) {
    const gchar *name, *before, *after;
    g_variant_get(parameters, "(&s&s&s)", &name, &before, &after);
    auto *wait = static_cast<Wait *>(data);
    if (*after) {
        wait->owned = true;
        g_main_loop_quit(wait->loop);
    }
}

gboolean giveUp(gpointer loop) {
    g_main_loop_quit(static_cast<GMainLoop *>(loop));
    return G_SOURCE_REMOVE;
}

// The value of "Key:" in a /proc file of key-value lines, in kB.
long procValue(pid_t pid, const char *file, const std::string &key) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/" + file);
    for (std::string line; std::getline(in, line);)
        if (line.rfind(key + ":", 0) == 0)
            return atol(line.c_str() + key.size() + 1);
    return -1;
}

// CPU time of every thread so far, in ns: the scheduler's own account, not clock ticks.
long long cpuNs(pid_t pid) {
    long long total = 0;
    g_autofree char *tasks = g_strdup_printf("/proc/%d/task", (int)pid);
    GDir *dir = g_dir_open(tasks, 0, nullptr);
    for (const char *task; dir && (task = g_dir_read_name(dir));) {
        std::ifstream in(std::string(tasks) + "/" + task + "/schedstat");
        long long ns = 0;
        in >> ns;
        total += ns;
    }
    if (dir)
        g_dir_close(dir);
    return total;
}

int sharedObjects(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/maps");
    std::set<std::string> objects;
    for (std::string line; std::getline(in, line);)
        if (line.find(".so") != std::string::npos)
            objects.insert(line.substr(line.find('/')));
    return static_cast<int>(objects.size());
}

} // namespace

int main(int argc, char **argv) {
    int calls = 2000, settleMs = 500, opt;
    while ((opt = getopt(argc, argv, "+n:s:")) != -1) {
        if (opt == 'n')
            calls = atoi(optarg);
        else if (opt == 's')
            settleMs = atoi(optarg);
        else
            return 2;
    }
    if (argc - optind < 2 || calls < 1) {
        fprintf(stderr, "usage: start_probe [-n CALLS] [-s SETTLE_MS] NAME PROGRAM [ARGS...]\n");
        return 2;
    }
    const char *name = argv[optind];
    g_autoptr(GError) error = nullptr;
    GDBusConnection *bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error);
    if (!bus) {
        fprintf(stderr, "start_probe: %s\n", error->message);
        return 1;
    }
    Wait wait = {g_main_loop_new(nullptr, FALSE), false};
    g_dbus_connection_signal_subscribe(bus, "org.freedesktop.DBus", "org.freedesktop.DBus",
                                       "NameOwnerChanged", "/org/freedesktop/DBus", name,
                                       G_DBUS_SIGNAL_FLAGS_NONE, ownerChanged, &wait, nullptr);
    // A call after the subscription returns once the bus has the match rule too.
    g_autoptr(GVariant) id = g_dbus_connection_call_sync(
        bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId",
        nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);

    gint64 started = g_get_monotonic_time();
    pid_t pid = fork();
    if (pid == 0) {
        // A script run in the background hands its children SIGINT ignored, and an ignored
        // signal stays ignored across exec: the floor would never end.
        signal(SIGINT, SIG_DFL);
        execvp(argv[optind + 1], argv + optind + 1);
        _exit(127);
    }
    g_timeout_add(10000, giveUp, wait.loop);
    g_main_loop_run(wait.loop);
    gint64 owned = g_get_monotonic_time();
    if (!wait.owned) {
        fprintf(stderr, "start_probe: %s never owned %s\n", argv[optind + 1], name);
        kill(pid, SIGKILL);
        return 1;
    }
    g_usleep(settleMs * 1000);
    long rss = procValue(pid, "smaps_rollup", "Rss"), pss = procValue(pid, "smaps_rollup", "Pss");
    long anon = procValue(pid, "status", "RssAnon"), file = procValue(pid, "status", "RssFile");
    int objects = sharedObjects(pid);

    std::vector<double> trips;
    long long cpu = 0;
    for (int i = 0; i <= calls; i++) { // the first call is not counted
        if (i == 1)
            cpu = cpuNs(pid);
        gint64 sent = g_get_monotonic_time();
        g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
            bus, name, "/", "com.velto.ks", "demoState", g_variant_new("(s)", "{}"),
            G_VARIANT_TYPE("(s)"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
        if (!reply) {
            fprintf(stderr, "start_probe: demoState: %s\n", error->message);
            kill(pid, SIGKILL);
            return 1;
        }
        if (i > 0)
            trips.push_back(static_cast<double>(g_get_monotonic_time() - sent));
    }
    cpu = cpuNs(pid) - cpu;
    kill(pid, SIGINT);
    waitpid(pid, nullptr, 0);

    std::sort(trips.begin(), trips.end());
    printf("exec_ms=%.2f rss_kb=%ld pss_kb=%ld anon_kb=%ld file_kb=%ld libs=%d rtt_us=%.1f "
           "cpu_us=%.1f\n",
           (owned - started) / 1000.0, rss, pss, anon, file, objects, trips[trips.size() / 2],
           cpu / 1000.0 / calls);
    return 0;
}
