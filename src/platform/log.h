// The system log. Every line of the daemon goes through vyxLog: formatted into a zero-filled
// buffer of 900 bytes with a limit of 899, then handed to syslog (ident "vyxstaged", facility
// daemon). On a host (VYXSTAGED_ROOT set) lines are mirrored to stderr.
//
// VYXSTAGED_LOG_LEVEL (a syslog level name, "emerg" to "debug") sets which lines are wanted;
// without it every line is. A line that is not wanted costs a comparison: no formatting, no
// write, no system call.
#pragma once

#include <syslog.h>

constexpr int VYX_LOG_BUFFER = 900;

void vyxLog(int priority, const char *format, ...) __attribute__((format(printf, 2, 3)));

// Tests capture lines with their priority instead of (not in addition to) syslog. The level is
// read from the environment again with the next line.
typedef void (*VyxLogSink)(int priority, const char *line, void *context);
void vyxLogSetSink(VyxLogSink sink, void *context);

// Safe text for a "%s" whose argument may be null.
inline const char *logText(const char *text) {
    return text ? text : "NULL";
}
