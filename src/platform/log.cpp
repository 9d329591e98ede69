#include "platform/log.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static VyxLogSink s_sink = nullptr;
static void *s_sinkContext = nullptr;
static bool s_opened = false;

void vyxLogSetSink(VyxLogSink sink, void *context) {
    s_sink = sink;
    s_sinkContext = context;
}

void vyxLog(int priority, const char *format, ...) {
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
    if (!s_opened) {
        openlog("vyxstaged", LOG_PID, LOG_DAEMON);
        s_opened = true;
    }
    syslog(priority, "%s", line);
    // On a host the system log is rarely where a person looks first.
    if (getenv("VYXSTAGED_ROOT"))
        fprintf(stderr, "vyxstaged[%d]: %s\n", priority, line);
}
