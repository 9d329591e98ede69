#include <malloc.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "platform/bus.h"
#include "service/service.h"
#include "vyx_version.h"

static const char USAGE[] =
    "usage: vyxstaged [--help | --version]\n"
    "The retail demonstration-mode service com.velto.vyxService. The system bus starts it on\n"
    "the first call to that name, and it ends itself when idle; it takes no options. Its\n"
    "diagnostics go to the system log (ident vyxstaged). See vyxstaged(8).\n";

int main(int argc, char **argv) {
    // The platform starts the daemon without arguments; these are for a person at a terminal.
    if (argc == 2 && strcmp(argv[1], "--help") == 0) {
        fputs(USAGE, stdout);
        return 0;
    }
    if (argc == 2 && strcmp(argv[1], "--version") == 0) {
        puts("vyxstaged " VYX_VERSION);
        return 0;
    }
    if (argc > 1) {
        fprintf(stderr, "vyxstaged: unknown argument '%s'\n%s", argv[1], USAGE);
        return 2;
    }
    // Our one thread and GDBus's worker pass the same messages back and forth; a second malloc
    // arena for the worker would only hold a copy of the largest listing for good.
    mallopt(M_ARENA_MAX, 1);
    if (serviceStart()) {
        serviceRun();
    } else if (isatty(STDERR_FILENO)) {
        // Only the system log heard why; someone who started it by hand is looking here.
        g_autofree char *bus = KSBusDescription();
        fprintf(stderr, "vyxstaged: could not register %s on %s: %s\n", VYX_SERVICE_NAME, bus,
                KSLastErrorText());
    }
    return serviceFinish();
}
