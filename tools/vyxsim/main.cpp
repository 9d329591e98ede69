// vyxsim: the platform around the daemon, on an ordinary Linux host.
#include <glib-unix.h>
#include <glib.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "records.h"
#include "services.h"
#include "sim.h"
#include "web.h"
#include "vyx_version.h"

namespace {

const char *USAGE =
    "usage: vyxsim [--check] [--log FILE] [--root DIR] [--port N] [--web] [--web-port N] "
    "SCENARIO\n"
    "       vyxsim --help | --version\n"
    "  --check     only load and check the scenario\n"
    "  --log FILE  append every call received as one JSON line to FILE\n"
    "  --root DIR  where the scenario's files go (default: $VYXSTAGED_ROOT)\n"
    "  --port N    store port on 127.0.0.1 (default: the scenario's, else a free one)\n"
    "  --web       serve the device as a web page on 127.0.0.1 (its address is printed)\n"
    "  --web-port N  the page's port (default: a free one); implies --web\n";

struct Options {
    bool check = false;
    const char *log = nullptr;
    const char *root = nullptr;
    int port = -1;
    int webPort = -1; // -1: no page
    const char *scenario = nullptr;
};

bool parseArgs(int argc, char **argv, Options &options) {
    for (int i = 1; i < argc; ++i) {
        const char *arg = argv[i];
        auto value = [&]() -> const char * { return i + 1 < argc ? argv[++i] : nullptr; };
        if (strcmp(arg, "--check") == 0) {
            options.check = true;
        } else if (strcmp(arg, "--log") == 0) {
            if (!(options.log = value()))
                return false;
        } else if (strcmp(arg, "--root") == 0) {
            if (!(options.root = value()))
                return false;
        } else if (strcmp(arg, "--port") == 0 || strcmp(arg, "--web-port") == 0) {
            const char *text = value();
            char *end = nullptr;
            long port = text ? strtol(text, &end, 10) : -1;
            if (!text || *end || port < 0 || port > 65535)
                return false;
            (arg[2] == 'w' ? options.webPort : options.port) = static_cast<int>(port);
        } else if (strcmp(arg, "--web") == 0) {
            options.webPort = std::max(options.webPort, 0);
        } else if (arg[0] == '-' || options.scenario) {
            return false;
        } else {
            options.scenario = arg;
        }
    }
    return options.scenario != nullptr;
}

// The scenario's files (configuration, role file) belong to the device, so they only ever go
// below a root, never onto the host itself. The device's writable directories are there from
// the start, as on a device, whether or not a file lies in them yet.
bool writeFiles(const char *root, std::string &error) {
    for (const char *dir : {"/var/usr/velto", "/media/cryptofs/apps/usr/velto/applications"}) {
        std::string target = std::string(root) + dir;
        if (g_mkdir_with_parents(target.c_str(), 0755) != 0) {
            error = "cannot make " + target + ": " + g_strerror(errno);
            return false;
        }
    }
    for (const auto &[path, content] : sim().device.files) {
        std::string target = std::string(root) + path;
        gchar *dir = g_path_get_dirname(target.c_str());
        int made = g_mkdir_with_parents(dir, 0755);
        g_free(dir);
        GError *writeError = nullptr;
        if (made != 0 || !g_file_set_contents(target.c_str(), content.data(),
                                              static_cast<gssize>(content.size()), &writeError)) {
            error = "cannot write " + target + ": " +
                    (writeError ? writeError->message : g_strerror(errno));
            if (writeError)
                g_error_free(writeError);
            return false;
        }
    }
    return true;
}

gboolean onSignal(gpointer loop) {
    g_main_loop_quit(static_cast<GMainLoop *>(loop));
    return G_SOURCE_CONTINUE;
}

} // namespace

int main(int argc, char **argv) {
    if (argc == 2 && (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "--version") == 0)) {
        fputs(argv[1][2] == 'h' ? USAGE : "vyxsim " VYX_VERSION "\n", stdout);
        return 0;
    }
    Options options;
    if (!parseArgs(argc, argv, options)) {
        fputs(USAGE, stderr);
        return 2;
    }
    std::string error;
    if (!loadScenario(options.scenario, sim().device, error)) {
        fprintf(stderr, "vyxsim: %s: %s\n", options.scenario, error.c_str());
        return 1;
    }
    if (options.check) {
        printf("vyxsim: %s: scenario ok\n", options.scenario);
        return 0;
    }
    if (!options.root)
        options.root = getenv("VYXSTAGED_ROOT");
    if (!sim().device.files.empty() && (!options.root || !*options.root)) {
        fprintf(stderr, "vyxsim: the scenario has files but no root was given (--root or "
                        "VYXSTAGED_ROOT)\n");
        return 2;
    }
    if (options.root && *options.root) {
        if (!writeFiles(options.root, error)) {
            fprintf(stderr, "vyxsim: %s\n", error.c_str());
            return 3;
        }
    }
    if (options.log && !recordsOpenLog(options.log, error)) {
        fprintf(stderr, "vyxsim: %s\n", error.c_str());
        return 3;
    }

    GMainLoop *loop = g_main_loop_new(nullptr, FALSE);
    g_unix_signal_add(SIGINT, onSignal, loop);
    g_unix_signal_add(SIGTERM, onSignal, loop);
    controlSetLoop(loop);
    defineDeviceServices();
    defineDisplayServices();
    defineInstallService();
    defineControlService();

    int status = 0;
    bool web = options.webPort >= 0;
    if (!storeStart(options.port >= 0 ? options.port : sim().device.storePort, error) ||
        (web && !webStart(options.webPort, error)) ||
        !servicesStart(loop, sim().device.faults.notRunning, error)) {
        fprintf(stderr, "vyxsim: %s\n", error.c_str());
        status = 3;
    } else {
        // A line of its own, before "ready": scripts read the store's address off that one.
        if (web)
            printf("vyxsim: page %s\n", webUrl().c_str());
        printf("vyxsim: ready, scenario \"%s\", store %s\n", sim().device.name.c_str(),
               sim().storeUrl.c_str());
        fflush(stdout);
        g_main_loop_run(loop);
    }
    webStop();
    servicesStop();
    storeStop();
    recordsClose();
    g_main_loop_unref(loop);
    return status;
}
