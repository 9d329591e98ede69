// The page is static (tools/vyxsim/web/). Everything live reaches it as server-sent events: a
// "state" event with the whole picture whenever something changed, and a "reply" event with each
// answer the daemon gave to a control. Controls are JSON POSTs to /api/NAME; they change the
// device the way the control interface does, or call the daemon's own methods as vyxctl does.
#include "web.h"

#include <gio/gio.h>
#include <libsoup/soup.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <initializer_list>
#include <vector>

#include "platform/bus.h"
#include "records.h"
#include "services.h"
#include "sim.h"
#include "sim_json.h"

namespace {

const char *DAEMON = "com.velto.vyxService";
const char *CORE_APP = "com.velto.app.vyxcore";
constexpr size_t RECENT = 10;
constexpr size_t PAYLOAD_SHOWN = 160;

SoupServer *s_server = nullptr;
int s_port = 0;
std::string s_dir;
std::vector<SoupServerMessage *> s_streams;
guint s_pushSource = 0;
guint s_keepAliveSource = 0;

GDBusConnection *s_bus = nullptr;
guint s_watch = 0;
bool s_daemonOnBus = false;
std::string s_demoState = "unknown";
// The daemon's own account of its provisioning run ("runStatus"), followed while a page is open.
std::string s_runRecord; // empty: none yet
bool s_runWatched = false;
bool s_runOpen = false;

// What the page shows that no service keeps: what is in front on the screen, and the recent
// traffic. The foreground is whatever was launched last: a pop-up brings the core application
// up, the demonstration covers it again.
std::deque<std::string> s_calls, s_storeRequests;
std::string s_popup = "null";
std::string s_foreground = "home";
std::string s_demoApp;
bool s_video = false;

// Installed beside the binary (bin/../share/vyxsim/web), else the source tree it was built from.
std::string findPageDir() {
    std::vector<std::string> candidates;
    if (gchar *exe = g_file_read_link("/proc/self/exe", nullptr)) {
        gchar *dir = g_path_get_dirname(exe);
        candidates.push_back(std::string(dir) + "/" VYXSIM_WEB_RELATIVE_DIR);
        g_free(dir);
        g_free(exe);
    }
    candidates.push_back(VYXSIM_WEB_SOURCE_DIR);
    for (const std::string &dir : candidates)
        if (g_file_test((dir + "/index.html").c_str(), G_FILE_TEST_IS_REGULAR))
            return dir;
    return {};
}

void pushRecent(std::deque<std::string> &list, std::string item) {
    list.push_back(std::move(item));
    if (list.size() > RECENT)
        list.pop_front();
}

std::string joined(const std::deque<std::string> &list) {
    std::string out;
    for (const std::string &item : list)
        appendItem(out, item);
    return "[" + out + "]";
}

// Store bodies can be long; the page shows the start, cut on a character boundary.
std::string shortened(std::string text) {
    if (text.size() <= PAYLOAD_SHOWN)
        return text;
    size_t cut = PAYLOAD_SHOWN;
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80)
        --cut;
    return text.substr(0, cut) + "…";
}

bool demoRunning() {
    return std::any_of(sim().device.running.begin(), sim().device.running.end(),
                       [](const RunningApp &app) { return app.id == s_demoApp; });
}

std::string installOutcome() {
    std::string common;
    for (const CatalogueEntry &entry : sim().device.catalogue) {
        auto found = sim().device.installs.find(entry.id);
        std::string word = installOutcomeName(
            found == sim().device.installs.end() ? InstallOutcome::Installed
                                                 : found->second.outcome);
        if (!common.empty() && common != word)
            return "mixed";
        common = word;
    }
    return common.empty() ? "installed" : common;
}

std::string snapshot() {
    const Scenario &device = sim().device;
    std::string preferences, catalogue, notRunning, running;
    for (const auto &[key, value] : device.preferences)
        appendItem(preferences, jsonQuote(key) + ":" + value);
    for (const CatalogueEntry &entry : device.catalogue)
        appendItem(catalogue, "{\"id\":" + jsonQuote(entry.id) + ",\"version\":" +
                                  jsonQuote(entry.version) + ",\"title\":" +
                                  jsonQuote(entry.title) + "}");
    for (const std::string &name : device.faults.notRunning)
        appendItem(notRunning, jsonQuote(name));
    for (const RunningApp &app : device.running)
        appendItem(running, jsonQuote(app.id));
    std::string foreground = s_foreground == "demo" && !demoRunning() ? "home" : s_foreground;
    return "{\"scenario\":" + jsonQuote(device.name) + ",\"time\":" +
           std::to_string(simClock()) + ",\"daemon\":{\"onBus\":" +
           (s_daemonOnBus ? "true" : "false") + ",\"demoState\":" + jsonQuote(s_demoState) +
           "},\"preferences\":{" + preferences + "},\"connectivity\":" + device.connectivity +
           ",\"display\":" + device.display + ",\"packages\":" + packagesJson() +
           ",\"installs\":" + installsJson() + ",\"catalogue\":[" + catalogue +
           "],\"running\":[" + running + "],\"faults\":{\"store\":" +
           jsonQuote(storeFaultName(device.faults.store)) + ",\"notRunning\":[" + notRunning +
           "],\"statusSilent\":" + (device.faults.statusSilent ? "true" : "false") +
           "},\"installOutcome\":" + jsonQuote(installOutcome()) +
           ",\"foreground\":" + jsonQuote(foreground) + ",\"popup\":" + s_popup +
           ",\"demo\":{\"app\":" + jsonQuote(s_demoApp) +
           ",\"running\":" + (demoRunning() ? "true" : "false") +
           ",\"video\":" + (s_video ? "true" : "false") + "},\"calls\":" + joined(s_calls) +
           ",\"store\":" + joined(s_storeRequests) + ",\"run\":" +
           (s_runRecord.empty() ? std::string("null")
                                : std::string("{\"running\":") + (s_runOpen ? "true" : "false") +
                                      ",\"record\":" + s_runRecord + "}") +
           "}";
}

// --- the event streams ---------------------------------------------------------------------

std::string event(const char *name, std::string data) {
    // A raw line break can only be white space between JSON tokens, and would end the event.
    std::replace(data.begin(), data.end(), '\n', ' ');
    return std::string("event: ") + name + "\ndata: " + data + "\n\n";
}

void streamWrite(SoupServerMessage *message, const std::string &text) {
    soup_message_body_append(soup_server_message_get_response_body(message), SOUP_MEMORY_COPY,
                             text.data(), text.size());
    soup_server_message_unpause(message);
}

void broadcast(const std::string &text) {
    for (SoupServerMessage *message : s_streams)
        streamWrite(message, text);
}

gboolean pushState(gpointer) {
    s_pushSource = 0;
    broadcast(event("state", snapshot()));
    return G_SOURCE_REMOVE;
}

// Many records come in one burst (a call, its install tick, a pop-up): one picture for all.
void schedulePush() {
    if (!s_pushSource && !s_streams.empty())
        s_pushSource = g_idle_add(pushState, nullptr);
}

// A paused stream notices a vanished reader only when it writes.
gboolean keepAlive(gpointer) {
    broadcast(": still here\n\n");
    return G_SOURCE_CONTINUE;
}

void onStreamFinished(SoupServerMessage *message, gpointer) {
    auto found = std::find(s_streams.begin(), s_streams.end(), message);
    if (found != s_streams.end()) {
        s_streams.erase(found);
        g_object_unref(message);
    }
}

// --- the daemon ----------------------------------------------------------------------------

bool callDaemon(const char *method, const std::string &payload, std::string &error);

void askDemoState() {
    std::string ignored;
    if (s_daemonOnBus)
        callDaemon("demoState", "{}", ignored);
}

bool onDaemonReply(BusHandle *, BusMessage *reply, void *context) {
    const char *method = static_cast<const char *>(context);
    const char *payload = KSMessageGetPayload(reply);
    std::string text = payload ? payload : "";
    if (strcmp(method, "demoState") == 0) {
        JsonTree tree = jsonParse(text.c_str());
        std::string state = jsonText(jsonMember(tree.get(), "state"));
        s_demoState = state.empty() ? "unknown" : state;
    } else {
        broadcast(event("reply", "{\"method\":" + jsonQuote(method) +
                                     ",\"reply\":" + jsonQuote(text) + "}"));
        askDemoState();
    }
    schedulePush();
    return true;
}

// `method` must outlive the call: only literals are passed.
bool callDaemon(const char *method, const std::string &payload, std::string &error) {
    std::string uri = std::string("velto://") + DAEMON + "/" + method;
    BusError busError;
    KSErrorInit(&busError);
    BusToken token = 0;
    bool sent = KSCall(outgoingHandle(), uri.c_str(), payload.c_str(), onDaemonReply,
                       const_cast<char *>(method), &token, &busError);
    if (!sent)
        error = std::string("the call could not be sent: ") +
                (busError.message ? busError.message : "unknown error");
    KSErrorFree(&busError);
    return sent;
}

void watchRun();

bool onRunStatus(BusHandle *, BusMessage *reply, void *) {
    const char *payload = KSMessageGetPayload(reply);
    JsonTree tree = jsonParse(payload ? payload : "");
    const JsonNode *root = tree.get();
    if (!root || jsonReplyFailed(root)) { // gone, or a daemon that keeps no record
        s_runWatched = false;
        return true;
    }
    const JsonNode *running = jsonMember(root, "running");
    const JsonNode *run = jsonMember(root, "run");
    bool open = running && running->type == JSON_TRUE;
    if (run)
        s_runRecord = json_write(run);
    // The daemon lets a subscription go with its run; taken again between runs, it follows the
    // next one.
    bool ended = s_runOpen && !open;
    s_runOpen = open;
    if (ended) {
        s_runWatched = false;
        watchRun();
    }
    schedulePush();
    return true;
}

void watchRun() {
    if (s_runWatched || !s_daemonOnBus || s_streams.empty())
        return;
    BusError error;
    KSErrorInit(&error);
    BusToken token = 0;
    s_runWatched = KSCall(outgoingHandle(), "velto://com.velto.vyxService/runStatus",
                          "{\"subscribe\":true}", onRunStatus, nullptr, &token, &error);
    KSErrorFree(&error);
}

void onDaemonAppeared(GDBusConnection *, const gchar *, const gchar *, gpointer) {
    s_daemonOnBus = true;
    if (!s_streams.empty())
        askDemoState();
    watchRun();
    schedulePush();
}

void onDaemonVanished(GDBusConnection *, const gchar *, gpointer) {
    s_daemonOnBus = false;
    s_demoState = "unknown";
    s_runWatched = s_runOpen = false;
    schedulePush();
}

// Its own connection to the daemon's bus: the page only watches the name, it never owns one.
void watchDaemon() {
    GError *error = nullptr;
    const char *session = getenv("DBUS_SESSION_BUS_ADDRESS");
    if (session && *session)
        s_bus = g_dbus_connection_new_for_address_sync(
            session,
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, &error);
    else
        s_bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (!s_bus) {
        g_printerr("vyxsim: the page cannot watch for the daemon: %s\n", error->message);
        g_error_free(error);
        return;
    }
    s_watch = g_bus_watch_name_on_connection(s_bus, DAEMON, G_BUS_NAME_WATCHER_FLAGS_NONE,
                                             onDaemonAppeared, onDaemonVanished, nullptr,
                                             nullptr);
}

// --- what happens on the device ------------------------------------------------------------

void onRecord(const char *kind, const std::string &json) {
    JsonTree record = jsonParse(json.c_str());
    const JsonNode *root = record.get();
    std::string time = jsonText(jsonMember(root, "time"));
    if (strcmp(kind, "call") == 0) {
        std::string service = jsonText(jsonMember(root, "service"));
        if (service != "com.velto.sim")
            pushRecent(s_calls, "{\"time\":" + time + ",\"service\":" + jsonQuote(service) +
                                    ",\"method\":" +
                                    jsonQuote(jsonText(jsonMember(root, "method"))) +
                                    ",\"payload\":" +
                                    jsonQuote(shortened(jsonText(jsonMember(root, "payload")))) +
                                    "}");
    } else if (strcmp(kind, "store") == 0) {
        pushRecent(s_storeRequests, json);
    } else if (strcmp(kind, "preference") == 0 && !s_streams.empty() &&
               jsonText(jsonMember(root, "key")) == "vyxStageRunning") {
        askDemoState(); // the daemon stored a new demo mode, whoever asked it to
    } else if (strcmp(kind, "popup") == 0) {
        s_popup = json;
        // "the demo is ready" comes after the demonstration is up: the core application steps
        // aside instead of covering it.
        if (jsonText(jsonMember(root, "message")) != "startVYX" || !demoRunning())
            s_foreground = "popup";
    } else if (strcmp(kind, "launch") == 0) {
        std::string id = jsonText(jsonMember(root, "id"));
        std::string action = jsonText(jsonMember(root, "action"));
        const JsonNode *ok = jsonMember(root, "ok");
        if (id == CORE_APP) {
            if (action == "startVyx")
                s_foreground = "demo";
            else if (action == "stopVyx")
                s_foreground = "home";
        } else if (action == "exit") {
            s_video = false;
            if (id == s_demoApp && s_foreground == "demo")
                s_foreground = "home";
        } else if (ok && ok->type == JSON_TRUE &&
                   (action == "initialize" || action == "reboot" || action == "power")) {
            s_demoApp = id;
            s_video = jsonTruthy(jsonMember(jsonMember(root, "params"), "playVideo"));
            s_foreground = "demo";
        }
    }
    schedulePush();
}

// --- the controls --------------------------------------------------------------------------

// Every member known: a misspelt control must not quietly do nothing.
bool onlyMembers(const JsonNode *root, std::initializer_list<const char *> known,
                 std::string &error) {
    for (const JsonNode *label = root->child; label; label = label->next) {
        bool ok = false;
        for (const char *name : known)
            ok = ok || strcmp(label->text, name) == 0;
        if (!ok) {
            error = "unknown member \"" + jsonUnescape(label->text) + "\"";
            return false;
        }
    }
    return true;
}

bool oneOf(const JsonNode *value, std::initializer_list<const char *> words, const char *member,
           std::string &word, std::string &error) {
    word = value && value->type == JSON_STRING ? jsonText(value) : "";
    for (const char *allowed : words)
        if (word == allowed)
            return true;
    std::string list;
    for (const char *allowed : words)
        appendItem(list, allowed, '|');
    error = std::string("\"") + member + "\" must be one of " + list;
    return false;
}

bool isBool(const JsonNode *value) {
    return value && (value->type == JSON_TRUE || value->type == JSON_FALSE);
}

// Each returns the HTTP status and, when it is not 200, the reason.
unsigned apiDemo(const JsonNode *root, const char *, std::string &error) {
    const JsonNode *state = jsonMember(root, "state");
    if (!onlyMembers(root, {"state"}, error))
        return SOUP_STATUS_BAD_REQUEST;
    if (!isBool(state)) {
        error = "\"state\" must be true or false";
        return SOUP_STATUS_BAD_REQUEST;
    }
    return callDaemon("setDemoState",
                      state->type == JSON_TRUE ? "{\"state\":true}" : "{\"state\":false}", error)
               ? SOUP_STATUS_OK
               : SOUP_STATUS_SERVICE_UNAVAILABLE;
}

unsigned apiVerify(const JsonNode *root, const char *, std::string &error) {
    if (!onlyMembers(root, {}, error))
        return SOUP_STATUS_BAD_REQUEST;
    return callDaemon("verifyPackages", "{}", error) ? SOUP_STATUS_OK
                                                     : SOUP_STATUS_SERVICE_UNAVAILABLE;
}

unsigned apiDisplay(const JsonNode *root, const char *, std::string &error) {
    if (!onlyMembers(root, {"state", "dock"}, error))
        return SOUP_STATUS_BAD_REQUEST;
    JsonTree current = jsonParse(sim().device.display.c_str());
    std::string event = jsonText(jsonMember(current.get(), "event"));
    std::string state = jsonText(jsonMember(current.get(), "state"));
    bool dock = jsonTruthy(jsonMember(current.get(), "dockMode"));
    if (const JsonNode *wanted = jsonMember(root, "state")) {
        if (!oneOf(wanted, {"on", "dimmed", "off"}, "state", state, error))
            return SOUP_STATUS_BAD_REQUEST;
        event = state == "on" ? "displayOn" : state == "dimmed" ? "displayDimmed" : "displayOff";
    }
    if (const JsonNode *docked = jsonMember(root, "dock")) {
        if (!isBool(docked)) {
            error = "\"dock\" must be true or false";
            return SOUP_STATUS_BAD_REQUEST;
        }
        dock = docked->type == JSON_TRUE;
    }
    if (!root->child) {
        error = "give \"state\" or \"dock\"";
        return SOUP_STATUS_BAD_REQUEST;
    }
    displayInject("{\"event\":" + jsonQuote(event.empty() ? "displayOn" : event) +
                  ",\"state\":" + jsonQuote(state.empty() ? "on" : state) +
                  ",\"dockMode\":" + (dock ? "true" : "false") + "}");
    return SOUP_STATUS_OK;
}

unsigned apiNetwork(const JsonNode *root, const char *, std::string &error) {
    std::string network;
    if (!onlyMembers(root, {"network"}, error) ||
        !oneOf(jsonMember(root, "network"), {"wifi", "cellular", "none"}, "network", network,
               error))
        return SOUP_STATUS_BAD_REQUEST;
    // The names the scenario gave its networks stay; only the states change.
    JsonTree current = jsonParse(sim().device.connectivity.c_str());
    std::string ssid = jsonText(jsonMember(jsonMember(current.get(), "wifi"), "ssid"));
    std::string wan = jsonText(jsonMember(jsonMember(current.get(), "wan"), "network"));
    auto state = [](bool up) { return up ? "\"connected\"" : "\"disconnected\""; };
    connectivityInject(
        std::string("{\"isInternetConnectionAvailable\":") +
        (network != "none" ? "true" : "false") + ",\"wifi\":{\"state\":" +
        state(network == "wifi") + ",\"ssid\":" + jsonQuote(ssid.empty() ? "vyxsim" : ssid) +
        "},\"wan\":{\"state\":" + state(network == "cellular") +
        ",\"network\":" + jsonQuote(wan.empty() ? "lte" : wan) + "}}");
    return SOUP_STATUS_OK;
}

unsigned apiFault(const JsonNode *, const char *body, std::string &error) {
    return faultsChange(body, error) ? SOUP_STATUS_OK : SOUP_STATUS_BAD_REQUEST;
}

unsigned apiInstall(const JsonNode *root, const char *, std::string &error) {
    std::string word;
    if (!onlyMembers(root, {"outcome"}, error) ||
        !oneOf(jsonMember(root, "outcome"),
               {"installed", "failed", "canceled", "refused", "silent"}, "outcome", word, error))
        return SOUP_STATUS_BAD_REQUEST;
    InstallOutcome outcome = InstallOutcome::Installed;
    for (InstallOutcome each : {InstallOutcome::Installed, InstallOutcome::Failed,
                                InstallOutcome::Canceled, InstallOutcome::Refused,
                                InstallOutcome::Silent})
        if (word == installOutcomeName(each))
            outcome = each;
    for (const CatalogueEntry &entry : sim().device.catalogue)
        sim().device.installs[entry.id].outcome = outcome;
    return SOUP_STATUS_OK;
}

struct Control {
    const char *path;
    unsigned (*fn)(const JsonNode *root, const char *body, std::string &error);
};

const Control CONTROLS[] = {
    {"/api/demo", apiDemo},       {"/api/verify", apiVerify}, {"/api/display", apiDisplay},
    {"/api/network", apiNetwork}, {"/api/fault", apiFault},   {"/api/install", apiInstall},
};

struct StaticFile {
    const char *path;
    const char *file;
    const char *type;
};

const StaticFile FILES[] = {
    {"/", "index.html", "text/html; charset=utf-8"},
    {"/app.js", "app.js", "text/javascript; charset=utf-8"},
    {"/style.css", "style.css", "text/css; charset=utf-8"},
};

// --- HTTP ----------------------------------------------------------------------------------

void commonHeaders(SoupServerMessage *message) {
    SoupMessageHeaders *headers = soup_server_message_get_response_headers(message);
    soup_message_headers_replace(headers, "Cache-Control", "no-store");
    soup_message_headers_replace(headers, "X-Content-Type-Options", "nosniff");
    soup_message_headers_replace(headers, "Referrer-Policy", "no-referrer");
    // No other page may frame this one and lure clicks onto its controls.
    soup_message_headers_replace(headers, "Content-Security-Policy",
                                 "default-src 'self'; img-src 'self' data:; "
                                 "frame-ancestors 'none'; base-uri 'none'; form-action 'none'");
}

void answer(SoupServerMessage *message, unsigned status, const std::string &error) {
    std::string body = status == SOUP_STATUS_OK
                           ? std::string("{\"ok\":true}")
                           : "{\"ok\":false,\"error\":" + jsonQuote(error) + "}";
    soup_server_message_set_status(message, status, nullptr);
    soup_server_message_set_response(message, "application/json", SOUP_MEMORY_COPY, body.data(),
                                     body.size());
}

void openStream(SoupServerMessage *message) {
    soup_server_message_set_status(message, SOUP_STATUS_OK, nullptr);
    SoupMessageHeaders *headers = soup_server_message_get_response_headers(message);
    soup_message_headers_set_content_type(headers, "text/event-stream", nullptr);
    soup_message_headers_set_encoding(headers, SOUP_ENCODING_CHUNKED);
    // What was sent is gone: a page left open for a day must not grow the simulator.
    soup_message_body_set_accumulate(soup_server_message_get_response_body(message), FALSE);
    s_streams.push_back(static_cast<SoupServerMessage *>(g_object_ref(message)));
    g_signal_connect(message, "finished", G_CALLBACK(onStreamFinished), nullptr);
    streamWrite(message, "retry: 1000\n\n" + event("state", snapshot()));
    askDemoState();
    watchRun();
}

void serveFile(SoupServerMessage *message, const StaticFile &file) {
    gchar *contents = nullptr;
    gsize length = 0;
    if (s_dir.empty() ||
        !g_file_get_contents((s_dir + "/" + file.file).c_str(), &contents, &length, nullptr)) {
        answer(message, SOUP_STATUS_NOT_FOUND,
               std::string("the page's file ") + file.file + " was not found");
        return;
    }
    soup_server_message_set_status(message, SOUP_STATUS_OK, nullptr);
    soup_server_message_set_response(message, file.type, SOUP_MEMORY_TAKE, contents, length);
}

std::string header(SoupServerMessage *message, const char *name) {
    const char *value =
        soup_message_headers_get_one(soup_server_message_get_request_headers(message), name);
    return value ? value : "";
}

void handle(SoupServer *, SoupServerMessage *message, const char *path, GHashTable *, gpointer) {
    commonHeaders(message);
    std::string method = soup_server_message_get_method(message);
    std::string port = ":" + std::to_string(s_port);
    std::string host = header(message, "Host");
    // A foreign name that resolves to 127.0.0.1 (DNS rebinding) gets nothing, not even a read.
    if (host != "127.0.0.1" + port && host != "localhost" + port) {
        answer(message, SOUP_STATUS_FORBIDDEN, "unknown host \"" + host + "\"");
        return;
    }
    // Another page may not even watch: its stream would ask the daemon questions of its own.
    std::string origin = header(message, "Origin");
    if (!origin.empty() && origin != "http://" + host) {
        answer(message, SOUP_STATUS_FORBIDDEN, "\"" + origin + "\" is not this page");
        return;
    }
    if (method == "POST") {
        for (const Control &control : CONTROLS) {
            if (strcmp(path, control.path) != 0)
                continue;
            // Browsers always name the page a POST comes from; only ours may drive the device.
            if (origin.empty()) {
                answer(message, SOUP_STATUS_FORBIDDEN,
                       "changes are taken from the page at http://" + host + "/ only");
                return;
            }
            GBytes *bytes =
                soup_message_body_flatten(soup_server_message_get_request_body(message));
            gsize size = 0;
            const char *data = static_cast<const char *>(g_bytes_get_data(bytes, &size));
            std::string body(data ? data : "", size);
            g_bytes_unref(bytes);
            JsonTree root = jsonParse(body.c_str());
            std::string error;
            unsigned status = SOUP_STATUS_BAD_REQUEST;
            if (body.size() != strlen(body.c_str()) || !root || root->type != JSON_OBJECT)
                error = "the body must be a JSON object";
            else
                status = control.fn(root.get(), body.c_str(), error);
            answer(message, status, error);
            schedulePush();
            return;
        }
        answer(message, SOUP_STATUS_NOT_FOUND, std::string("no control at ") + path);
        return;
    }
    if (method != "GET" && method != "HEAD") {
        answer(message, SOUP_STATUS_METHOD_NOT_ALLOWED, method + " is not served here");
        return;
    }
    if (strcmp(path, "/events") == 0 && method == "GET") {
        openStream(message);
        return;
    }
    for (const StaticFile &file : FILES)
        if (strcmp(path, file.path) == 0) {
            serveFile(message, file);
            return;
        }
    answer(message, SOUP_STATUS_NOT_FOUND, std::string("nothing at ") + path);
}

} // namespace

bool webStart(int port, std::string &error) {
    s_dir = findPageDir();
    if (s_dir.empty()) {
        error = "the page's files were found neither installed nor in " VYXSIM_WEB_SOURCE_DIR;
        return false;
    }
    s_server = soup_server_new("server-header", "vyxsim-web", nullptr);
    soup_server_add_handler(s_server, nullptr, handle, nullptr, nullptr);
    GError *listenError = nullptr;
    if (!soup_server_listen_local(s_server, port, SOUP_SERVER_LISTEN_IPV4_ONLY, &listenError)) {
        error = std::string("page: cannot listen on 127.0.0.1:") + std::to_string(port) + ": " +
                listenError->message;
        g_error_free(listenError);
        return false;
    }
    GSList *uris = soup_server_get_uris(s_server);
    s_port = uris ? g_uri_get_port(static_cast<GUri *>(uris->data)) : port;
    g_slist_free_full(uris, reinterpret_cast<GDestroyNotify>(g_uri_unref));
    recordsSetListener(onRecord);
    s_keepAliveSource = g_timeout_add_seconds(15, keepAlive, nullptr);
    watchDaemon();
    return true;
}

void webStop() {
    recordsSetListener(nullptr);
    for (guint *source : {&s_pushSource, &s_keepAliveSource})
        if (*source) {
            g_source_remove(*source);
            *source = 0;
        }
    for (SoupServerMessage *message : s_streams) {
        g_signal_handlers_disconnect_by_func(message, reinterpret_cast<gpointer>(onStreamFinished),
                                             nullptr);
        g_object_unref(message);
    }
    s_streams.clear();
    if (s_server) {
        soup_server_disconnect(s_server);
        g_object_unref(s_server);
        s_server = nullptr;
    }
    if (s_watch)
        g_bus_unwatch_name(s_watch);
    s_watch = 0;
    if (s_bus) {
        g_dbus_connection_close_sync(s_bus, nullptr, nullptr);
        g_object_unref(s_bus);
        s_bus = nullptr;
    }
}

std::string webUrl() {
    return "http://127.0.0.1:" + std::to_string(s_port) + "/";
}
