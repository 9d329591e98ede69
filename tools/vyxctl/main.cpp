// vyxctl: call any method on the bus and print every reply on a line of its own.
#include <glib-unix.h>
#include <glib.h>

#include <cstdio>
#include <cstring>

#include "platform/bus.h"
#include "platform/json.h"
#include "status.h"
#include "vyx_version.h"

namespace {

const char *USAGE =
    "usage: vyxctl [-i] [-t SECONDS] [-n COUNT] URI [PAYLOAD]\n"
    "       vyxctl status [--follow] [--json]\n"
    "       vyxctl --help | --version\n"
    "  URI      velto://SERVICE/[CATEGORY/]METHOD\n"
    "  PAYLOAD  the JSON text to send (default {})\n"
    "  -i       keep printing further replies (subscriptions) until the time runs out\n"
    "  -t       how long to wait, in seconds (default 10)\n"
    "  -n       make the call COUNT times, each after the reply to the one before; print the\n"
    "           last reply and, on standard error, the time all round trips took\n"
    "Exits 1 when a reply says \"returnValue\":false (a service that is not running does),\n"
    "or no reply came in time; 2 on bad usage or when the bus cannot be reached.\n"
    "status: the demo mode, the run under way and the last runs, without starting the daemon.\n";

struct State {
    GMainLoop *loop = nullptr;
    bool keepListening = false;
    unsigned replies = 0;
    bool refused = false;
    // Repeated calls measure the bare bus round trip that the daemon's own calls are held
    // against, so they go through the same bus layer one after another.
    unsigned repeats = 1;
    BusHandle *handle = nullptr;
    const char *uri = nullptr;
    const char *payload = nullptr;
    gint64 firstSentUs = 0;
};

// A reply that is not valid JSON (an error text escaped the wrong way, say) still counts when it
// plainly says "returnValue":false.
bool textSaysFalse(const char *payload) {
    return g_regex_match_simple("\"returnValue\"\\s*:\\s*(false|\"false\")", payload,
                                G_REGEX_CASELESS, G_REGEX_MATCH_DEFAULT);
}

bool saysFalse(const char *payload) {
    if (!payload)
        return false;
    JsonTree root = jsonParse(payload);
    if (!root)
        return textSaysFalse(payload);
    if (root->type != JSON_OBJECT)
        return false;
    const JsonNode *label = json_find_first_label(root.get(), "returnValue");
    const JsonNode *value = label ? label->child : nullptr;
    if (!value)
        return false;
    return value->type == JSON_FALSE || (value->type == JSON_STRING && value->text &&
                                         g_ascii_strcasecmp(value->text, "false") == 0);
}

bool onReply(BusHandle *, BusMessage *reply, void *context) {
    auto *state = static_cast<State *>(context);
    const char *payload = KSMessageGetPayload(reply);
    if (!state->keepListening && ++state->replies < state->repeats) {
        BusError error;
        KSErrorInit(&error);
        BusToken token = 0;
        if (!KSCall(state->handle, state->uri, state->payload, onReply, state, &token, &error)) {
            fprintf(stderr, "vyxctl: %s\n", error.message ? error.message : "cannot call");
            g_main_loop_quit(state->loop);
        }
        KSErrorFree(&error);
        return true;
    }
    if (state->repeats > 1)
        fprintf(stderr, "vyxctl: %u round trips in %.3f ms\n", state->repeats,
                (g_get_monotonic_time() - state->firstSentUs) / 1000.0);
    printf("%s\n", payload ? payload : "");
    fflush(stdout);
    if (state->keepListening)
        ++state->replies;
    state->refused = state->refused || saysFalse(payload);
    if (!state->keepListening)
        g_main_loop_quit(state->loop);
    return true;
}

gboolean stop(gpointer loop) {
    g_main_loop_quit(static_cast<GMainLoop *>(loop));
    return G_SOURCE_REMOVE;
}

} // namespace

int main(int argc, char **argv) {
    if (argc == 2 && (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "--version") == 0)) {
        fputs(argv[1][2] == 'h' ? USAGE : "vyxctl " VYX_VERSION "\n", stdout);
        return 0;
    }
    if (argc > 1 && strcmp(argv[1], "status") == 0)
        return statusCommand(argc - 1, argv + 1);
    State state;
    double seconds = 10;
    int i = 1;
    for (; i < argc && argv[i][0] == '-' && argv[i][1]; ++i) {
        if (strcmp(argv[i], "-i") == 0) {
            state.keepListening = true;
        } else if (strcmp(argv[i], "-t") == 0 && i + 1 < argc) {
            char *end = nullptr;
            seconds = g_ascii_strtod(argv[++i], &end);
            if (*end || !(seconds > 0 && seconds < 86400)) {
                fputs(USAGE, stderr);
                return 2;
            }
        } else if (strcmp(argv[i], "-n") == 0 && i + 1 < argc) {
            char *end = nullptr;
            guint64 count = g_ascii_strtoull(argv[++i], &end, 10);
            if (*end || count < 1 || count > 1000000) {
                fputs(USAGE, stderr);
                return 2;
            }
            state.repeats = static_cast<unsigned>(count);
        } else {
            fputs(USAGE, stderr);
            return 2;
        }
    }
    if (i >= argc || argc - i > 2 || !g_str_has_prefix(argv[i], "velto://")) {
        fputs(USAGE, stderr);
        return 2;
    }
    const char *uri = argv[i];
    const char *payload = i + 1 < argc ? argv[i + 1] : "{}";
    state.uri = uri;
    state.payload = payload;

    state.loop = g_main_loop_new(nullptr, FALSE);
    BusHandle *handle = nullptr;
    BusError error;
    KSErrorInit(&error);
    BusToken token = 0;
    bool sent = KSRegister(nullptr, &handle, &error) && KSGmainAttach(handle, state.loop, &error);
    state.handle = handle;
    state.firstSentUs = g_get_monotonic_time();
    sent = sent && KSCall(handle, uri, payload, onReply, &state, &token, &error);
    if (!sent) {
        fprintf(stderr, "vyxctl: %s\n", error.message ? error.message : "cannot reach the bus");
        KSErrorFree(&error);
        if (handle) {
            KSErrorInit(&error);
            KSUnregister(handle, &error);
            KSErrorFree(&error);
        }
        g_main_loop_unref(state.loop);
        return 2;
    }
    g_timeout_add(static_cast<guint>(seconds * 1000), stop, state.loop);
    g_unix_signal_add(SIGINT, stop, state.loop);
    g_unix_signal_add(SIGTERM, stop, state.loop);
    g_main_loop_run(state.loop);

    KSUnregister(handle, &error);
    KSErrorFree(&error);
    g_main_loop_unref(state.loop);
    if (state.replies == 0) {
        fprintf(stderr, "vyxctl: no reply from %s within %g s\n", uri, seconds);
        return 1;
    }
    return state.refused ? 1 : 0;
}
