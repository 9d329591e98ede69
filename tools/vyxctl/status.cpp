// vyxctl status: what the daemon is doing and how its last runs ended, for a person. It never
// starts the daemon to ask: activating it with demo mode on would start the demonstration. Every
// call here goes out with NO_AUTO_START, after the bus said the name has an owner.
#include "status.h"

#include <gio/gio.h>
#include <glib-unix.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "platform/json.h"
#include "platform/paths.h"
#include "status/run_history_read.h"

namespace {

constexpr char SERVICE[] = "com.velto.vyxService";
constexpr int CALL_TIMEOUT_MS = 5000;

const char *STATUS_USAGE = "usage: vyxctl status [--follow] [--json]\n"
                           "  --follow  follow the run under way until it ends\n"
                           "  --json    print the records as JSON, for scripts\n";

GDBusConnection *openBus() {
    GBusType type = g_getenv("DBUS_SESSION_BUS_ADDRESS") ? G_BUS_TYPE_SESSION : G_BUS_TYPE_SYSTEM;
    return g_bus_get_sync(type, nullptr, nullptr);
}

// The unique name owning `name`, or "" when nobody does.
std::string ownerOf(GDBusConnection *bus, const char *name) {
    g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
        bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "GetNameOwner", g_variant_new("(s)", name), G_VARIANT_TYPE("(s)"), G_DBUS_CALL_FLAGS_NONE,
        CALL_TIMEOUT_MS, nullptr, nullptr);
    const char *owner = nullptr;
    if (!reply)
        return "";
    g_variant_get(reply, "(&s)", &owner);
    return owner;
}

GDBusMessage *ksCall(const char *service, const char *path, const char *method,
                     const char *payload) {
    GDBusMessage *message = g_dbus_message_new_method_call(service, path, "com.velto.ks", method);
    g_dbus_message_set_body(message, g_variant_new("(s)", payload));
    g_dbus_message_set_flags(message, G_DBUS_MESSAGE_FLAGS_NO_AUTO_START);
    return message;
}

// A one-shot call that never activates anything; "" when it got no answer.
std::string ask(GDBusConnection *bus, const char *service, const char *path, const char *method,
                const char *payload) {
    g_autoptr(GDBusMessage) call = ksCall(service, path, method, payload);
    g_autoptr(GDBusMessage) reply = g_dbus_connection_send_message_with_reply_sync(
        bus, call, G_DBUS_SEND_MESSAGE_FLAGS_NONE, CALL_TIMEOUT_MS, nullptr, nullptr, nullptr);
    if (!reply || g_dbus_message_get_message_type(reply) != G_DBUS_MESSAGE_TYPE_METHOD_RETURN)
        return "";
    GVariant *body = g_dbus_message_get_body(reply);
    if (!body || !g_variant_is_of_type(body, G_VARIANT_TYPE("(s)")))
        return "";
    const char *text = nullptr;
    g_variant_get(body, "(&s)", &text);
    return text;
}

const JsonNode *member(const JsonNode *object, const char *key) {
    const JsonNode *label =
        object && object->type == JSON_OBJECT ? json_find_first_label(object, key) : nullptr;
    return label ? label->child : nullptr;
}

// A member's text for people: escapes resolved.
std::string text(const JsonNode *object, const char *key) {
    const JsonNode *value = member(object, key);
    if (!value || !value->text)
        return "";
    g_autofree char *plain = g_strcompress(value->text);
    return plain;
}

long number(const JsonNode *object, const char *key) {
    const JsonNode *value = member(object, key);
    return value && value->type == JSON_NUMBER ? atol(value->text) : 0;
}

std::string clock(long seconds, const char *format) {
    time_t when = seconds;
    struct tm local = {};
    char out[64] = "";
    if (localtime_r(&when, &local))
        strftime(out, sizeof out, format, &local);
    return out;
}

std::string bar(long percent) {
    percent = percent < 0 ? 0 : percent > 100 ? 100 : percent;
    std::string out = "[";
    for (long i = 0; i < 20; ++i)
        out += i < percent / 5 ? '#' : '-';
    char figure[16];
    snprintf(figure, sizeof figure, "] %3ld%%", percent);
    return out + figure;
}

void printRunning(const JsonNode *run) {
    long now = time(nullptr);
    printf("run under way: since %s (%s), %ld s\n",
           clock(number(run, "started"), "%H:%M:%S").c_str(), text(run, "trigger").c_str(),
           now - number(run, "started"));
    printf("  %s\n", text(run, "activity").c_str());
    printf("  %s  to install %ld, installed %ld, failed %ld, removed %ld\n",
           bar(number(run, "overall")).c_str(), number(run, "toInstall"), number(run, "installed"),
           number(run, "failed"), number(run, "removed"));
}

void printHistory(const std::vector<std::string> &runs) {
    if (runs.empty()) {
        printf("last runs: none recorded\n");
        return;
    }
    printf("last runs (newest last):\n");
    size_t first = runs.size() > 10 ? runs.size() - 10 : 0;
    for (size_t i = first; i < runs.size(); ++i) {
        JsonTree run = jsonParse(runs[i].c_str());
        long started = number(run.get(), "started");
        printf("  %s  %4ld s  %-21s  %s\n", clock(started, "%Y-%m-%d %H:%M:%S").c_str(),
               number(run.get(), "ended") - started, text(run.get(), "outcome").c_str(),
               text(run.get(), "reason").c_str());
    }
}

std::vector<std::string> historyFile() {
    return runHistoryRead(vyxPath(RUN_HISTORY_FILE)).value_or(std::vector<std::string>{});
}

std::string demoMode(GDBusConnection *bus, bool daemonRunning) {
    if (daemonRunning) {
        JsonTree reply = jsonParse(ask(bus, SERVICE, "/", "demoState", "{}").c_str());
        std::string state = text(reply.get(), "state");
        return state.empty() ? "unknown" : state;
    }
    // The preference the daemon keeps it in, read from the system service.
    JsonTree reply = jsonParse(ask(bus, "com.velto.systemservice", "/", "getPreferences",
                                   "{\"keys\":[\"vyxStageRunning\"]}")
                                   .c_str());
    const JsonNode *value = member(reply.get(), "vyxStageRunning");
    if (value && value->type == JSON_TRUE)
        return "on";
    if (value && value->type == JSON_FALSE)
        return "off";
    return "unknown";
}

// --- following a run -------------------------------------------------------------------------

struct Follow {
    GMainLoop *loop;
    guint32 serial;
    bool json;
    bool ended = false;
};

// Each reply: a line while the run goes on, the outcome once it ended.
void showUpdate(Follow *follow, const char *payload) {
    if (follow->json) {
        printf("%s\n", payload);
    } else {
        JsonTree reply = jsonParse(payload);
        const JsonNode *run = member(reply.get(), "run");
        bool running =
            member(reply.get(), "running") && member(reply.get(), "running")->type == JSON_TRUE;
        if (running)
            printf("%s %s  %s\n", clock(time(nullptr), "%H:%M:%S").c_str(),
                   bar(number(run, "overall")).c_str(), text(run, "activity").c_str());
        else if (run && member(run, "outcome"))
            printf("%s run ended: %s: %s\n", clock(number(run, "ended"), "%H:%M:%S").c_str(),
                   text(run, "outcome").c_str(), text(run, "reason").c_str());
    }
    fflush(stdout);
}

void onReplySignal(GDBusConnection *, const char *, const char *, const char *, const char *,
                   GVariant *parameters, gpointer data) {
    auto *follow = static_cast<Follow *>(data);
    if (!g_variant_is_of_type(parameters, G_VARIANT_TYPE("(us)")))
        return;
    guint32 serial = 0;
    const char *payload = nullptr;
    g_variant_get(parameters, "(u&s)", &serial, &payload);
    if (serial != follow->serial)
        return;
    showUpdate(follow, payload);
    JsonTree reply = jsonParse(payload);
    const JsonNode *running = member(reply.get(), "running");
    if (running && running->type == JSON_FALSE) {
        follow->ended = true;
        g_main_loop_quit(follow->loop);
    }
}

void onOwnerGone(GDBusConnection *, const char *, gpointer data) {
    auto *follow = static_cast<Follow *>(data);
    printf("vyxstaged ended\n");
    g_main_loop_quit(follow->loop);
}

gboolean quitLoop(gpointer loop) {
    g_main_loop_quit(static_cast<GMainLoop *>(loop));
    return G_SOURCE_REMOVE;
}

int followRun(GDBusConnection *bus, const std::string &owner, bool json) {
    Follow follow{g_main_loop_new(nullptr, FALSE), 0, json};
    guint subscription = g_dbus_connection_signal_subscribe(
        bus, owner.c_str(), "com.velto.ks", "Reply", "/", nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
        onReplySignal, &follow, nullptr);
    guint watch = g_bus_watch_name_on_connection(bus, owner.c_str(), G_BUS_NAME_WATCHER_FLAGS_NONE,
                                                 nullptr, onOwnerGone, &follow, nullptr);
    g_autoptr(GDBusMessage) call = ksCall(SERVICE, "/", "runStatus", "{\"subscribe\":true}");
    g_autoptr(GDBusMessage) reply = g_dbus_connection_send_message_with_reply_sync(
        bus, call, G_DBUS_SEND_MESSAGE_FLAGS_NONE, CALL_TIMEOUT_MS, &follow.serial, nullptr,
        nullptr);
    int status = 1;
    GVariant *body = reply ? g_dbus_message_get_body(reply) : nullptr;
    if (body && g_variant_is_of_type(body, G_VARIANT_TYPE("(s)"))) {
        const char *payload = nullptr;
        g_variant_get(body, "(&s)", &payload);
        showUpdate(&follow, payload);
        if (!json && strstr(payload, "\"running\":false"))
            printf("no run under way: waiting for the next one (Ctrl-C ends)\n");
        g_unix_signal_add(SIGINT, quitLoop, follow.loop);
        g_unix_signal_add(SIGTERM, quitLoop, follow.loop);
        g_main_loop_run(follow.loop);
        status = follow.ended ? 0 : 1;
    } else {
        fprintf(stderr, "vyxctl: runStatus got no answer\n");
    }
    g_bus_unwatch_name(watch);
    g_dbus_connection_signal_unsubscribe(bus, subscription);
    g_main_loop_unref(follow.loop);
    return status;
}

} // namespace

int statusCommand(int argc, char **argv) {
    bool follow = false, json = false;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--follow") == 0) {
            follow = true;
        } else if (strcmp(argv[i], "--json") == 0) {
            json = true;
        } else {
            fputs(STATUS_USAGE, stderr);
            return 2;
        }
    }
    g_autoptr(GDBusConnection) bus = openBus();
    std::string owner = bus ? ownerOf(bus, SERVICE) : "";
    if (follow) {
        if (owner.empty()) {
            fprintf(stderr, "vyxctl: vyxstaged is not running, so no run is under way\n");
            return 1;
        }
        return followRun(bus, owner, json);
    }

    std::string current;
    if (!owner.empty()) {
        JsonTree reply = jsonParse(ask(bus, SERVICE, "/", "runStatus", "{}").c_str());
        const JsonNode *running = member(reply.get(), "running");
        if (running && running->type == JSON_TRUE)
            current = json_write(member(reply.get(), "run"));
    }
    std::string mode = bus ? demoMode(bus, !owner.empty()) : "unknown";
    std::vector<std::string> runs = historyFile();
    if (json) {
        std::string out = "{\"daemon\":\"" +
                          std::string(owner.empty() ? "not running" : "running") +
                          "\",\"demoMode\":\"" + mode +
                          "\",\"run\":" + (current.empty() ? "null" : current) + ",\"runs\":[";
        for (size_t i = 0; i < runs.size(); ++i)
            out += (i ? "," : "") + runs[i];
        printf("%s]}\n", out.c_str());
        return 0;
    }
    if (!bus)
        printf("vyxstaged: unknown (the bus cannot be reached)\n");
    else if (owner.empty())
        printf("vyxstaged: not running (history from %s)\n", vyxPath(RUN_HISTORY_FILE).c_str());
    else
        printf("vyxstaged: running\n");
    printf("demo mode: %s\n", mode.c_str());
    if (!current.empty()) {
        JsonTree run = jsonParse(current.c_str());
        printRunning(run.get());
    } else if (!owner.empty()) {
        printf("run under way: none\n");
    }
    printHistory(runs);
    return 0;
}
