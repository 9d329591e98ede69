// What the simulator was asked and what it saw happen, in arrival order, numbered from 1.
//
// Calls (bus and HTTP) go to the call log file as one JSON line each. Events (launches, pop-ups,
// install progress, activity callbacks, ...) are kept for the control interface and sent at
// once to every "watch" subscriber.
#pragma once

#include <string>

bool recordsOpenLog(const char *path, std::string &error);
void recordsClose();

// Seconds since the simulator started.
double simClock();

void recordCall(const char *service, const char *category, const char *method, const char *sender,
                const char *payload);
// `members` is a JSON member list ("\"id\":\"x\",\"ok\":true"); kind, seq and time are added.
void recordEvent(const char *kind, const std::string &members);

// {"returnValue":true,"records":[...]} with the records of `kind` (all when empty) whose
// sequence number is above `since`.
std::string recordsReply(const std::string &kind, long since);

// One observer of every record as it is made (the web page); null removes it.
using RecordListener = void (*)(const char *kind, const std::string &json);
void recordsSetListener(RecordListener listener);

// Watch subscribers choose kinds with a ";"-joined filter; empty means every kind but "call".
bool recordsWatchWants(const std::string &filter, const char *kind);
