#include "records.h"

#include <glib.h>

#include <cstdio>
#include <cstring>
#include <vector>

#include "services.h"
#include "sim_json.h"

namespace {

struct Record {
    long seq;
    std::string kind;
    std::string json; // the whole record object
};

std::vector<Record> s_records;
long s_seq = 0;
FILE *s_log = nullptr;
RecordListener s_listener = nullptr;
gint64 s_start = g_get_monotonic_time();

std::string header(const char *kind, long seq) {
    char buf[96];
    snprintf(buf, sizeof buf, "\"kind\":\"%s\",\"seq\":%ld,\"time\":%.3f", kind, seq, simClock());
    return buf;
}

// Payloads may be anything a caller sent; bus texts are UTF-8 but HTTP bodies need not be.
std::string validText(const char *text) {
    if (!text)
        return {};
    if (g_utf8_validate(text, -1, nullptr))
        return text;
    gchar *valid = g_utf8_make_valid(text, -1);
    std::string out = valid;
    g_free(valid);
    return out;
}

} // namespace

double simClock() {
    return static_cast<double>(g_get_monotonic_time() - s_start) / 1e6;
}

bool recordsOpenLog(const char *path, std::string &error) {
    s_log = fopen(path, "a");
    if (!s_log) {
        error = std::string("cannot open the call log ") + path + ": " + g_strerror(errno);
        return false;
    }
    return true;
}

void recordsClose() {
    if (s_log)
        fclose(s_log);
    s_log = nullptr;
}

void recordCall(const char *service, const char *category, const char *method, const char *sender,
                const char *payload) {
    long seq = ++s_seq;
    std::string json = "{";
    json += header("call", seq);
    json += ",\"service\":" + jsonQuote(validText(service));
    json += ",\"category\":" + jsonQuote(validText(category));
    json += ",\"method\":" + jsonQuote(validText(method));
    json += ",\"sender\":" + jsonQuote(validText(sender));
    json += ",\"payload\":" + jsonQuote(validText(payload));
    json += "}";
    if (s_log) {
        fputs(json.c_str(), s_log);
        fputc('\n', s_log);
        fflush(s_log);
    }
    s_records.push_back(Record{seq, "call", json});
    if (s_listener)
        s_listener("call", json);
    publishEach("sim/watch", [&](const Subscriber &who) {
        return recordsWatchWants(who.filter, "call") ? "{\"returnValue\":true," + json.substr(1)
                                                     : std::string();
    });
}

void recordEvent(const char *kind, const std::string &members) {
    long seq = ++s_seq;
    std::string json = jsonJoinMembers(header(kind, seq), members);
    s_records.push_back(Record{seq, kind, json});
    if (s_listener)
        s_listener(kind, json);
    publishEach("sim/watch", [&](const Subscriber &who) {
        return recordsWatchWants(who.filter, kind) ? "{\"returnValue\":true," + json.substr(1)
                                                   : std::string();
    });
}

std::string recordsReply(const std::string &kind, long since) {
    std::string out = "{\"returnValue\":true,\"records\":[";
    bool first = true;
    for (const Record &record : s_records) {
        if (record.seq <= since || (!kind.empty() && record.kind != kind))
            continue;
        if (!first)
            out += ',';
        first = false;
        out += record.json;
    }
    return out + "]}";
}

void recordsSetListener(RecordListener listener) {
    s_listener = listener;
}

bool recordsWatchWants(const std::string &filter, const char *kind) {
    if (filter.empty())
        return strcmp(kind, "call") != 0;
    gchar **kinds = g_strsplit(filter.c_str(), ";", -1);
    bool wanted = g_strv_contains(kinds, kind);
    g_strfreev(kinds);
    return wanted;
}
