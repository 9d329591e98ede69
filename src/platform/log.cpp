#include "platform/log.h"

#include <paths.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <unistd.h>

static VyxLogSink s_sink = nullptr;
static void *s_sinkContext = nullptr;

// Read from the environment with the first line, then kept; a test's sink reads it again, since
// the test sets the environment up first.
static int s_threshold = -1;
static bool s_mirror = false;

// Opened with the first line that is wanted; a host without a syslog socket skips syslog then,
// since glibc would otherwise try to connect again for every line.
static bool s_opened = false;
static bool s_syslog = false;
static char s_ident[32];

void vyxLogSetSink(VyxLogSink sink, void *context) {
    s_sink = sink;
    s_sinkContext = context;
    s_threshold = -1;
}

static int prvLevelNamed(const char *name, int fallback) {
    static const char *const names[] = {"emerg",   "alert",  "crit", "err",
                                        "warning", "notice", "info", "debug"};
    for (int level = LOG_EMERG; name && level <= LOG_DEBUG; level++)
        if (strcasecmp(name, names[level]) == 0)
            return level;
    return fallback;
}

static int prvThreshold() {
    if (s_threshold < 0) {
        s_mirror = getenv("VYXSTAGED_ROOT") != nullptr;
        // Every line by default: what reaches the system log is the platform's to filter. Only
        // whoever starts the daemon (the unit file, a benchmark) asks for less.
        s_threshold = prvLevelNamed(getenv("VYXSTAGED_LOG_LEVEL"), LOG_DEBUG);
    }
    return s_threshold;
}

static void prvOpen() {
    s_opened = true;
    if (access(_PATH_LOG, W_OK) != 0)
        return;
    // The process id goes into the ident once: with LOG_PID glibc asks the kernel for it on
    // every line. The text that reaches the log is the same, "vyxstaged[PID]: ".
    snprintf(s_ident, sizeof s_ident, "vyxstaged[%d]", (int)getpid());
    openlog(s_ident, LOG_NDELAY, LOG_DAEMON);
    s_syslog = true;
}

void vyxLog(int priority, const char *format, ...) {
    if (LOG_PRI(priority) > prvThreshold())
        return;
    char line[VYX_LOG_BUFFER];
    memset(line, 0, sizeof line);
    va_list args;
    va_start(args, format);
    vsnprintf(line, VYX_LOG_BUFFER - 1, format, args);
    va_end(args);

    if (s_sink) {
        s_sink(priority, line, s_sinkContext);
        return;
    }
    if (!s_opened)
        prvOpen();
    if (s_syslog)
        syslog(priority, "%s", line);
    // On a host the system log is rarely where a person looks first. One write per line.
    if (s_mirror) {
        char mirrored[VYX_LOG_BUFFER + 64];
        int n = snprintf(mirrored, sizeof mirrored, "vyxstaged[%d]: %s\n", priority, line);
        if (n > 0)
            (void)!write(STDERR_FILENO, mirrored, (size_t)n);
    }
}
