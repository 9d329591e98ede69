// The store web service: a real HTTP server on 127.0.0.1, so the daemon's transport is exercised
// as it is on the device. It answers the package detail and the user profile requests from the
// scenario's catalogue and profile, and plays the store's faults.
#include <libsoup/soup.h>

#include <algorithm>
#include <cstring>

#include "records.h"
#include "sim.h"
#include "sim_json.h"

namespace {

SoupServer *s_server = nullptr;
int s_port = 0;
bool s_listening = false;

// Request bodies are written with single quotes and unescaped values; read them leniently and
// take the first member of that name at any depth.
std::string findText(const JsonNode *node, const char *key) {
    if (!node)
        return {};
    if (node->type == JSON_OBJECT) {
        if (const JsonNode *value = jsonMember(node, key); value && value->type != JSON_OBJECT)
            return jsonText(value);
        for (const JsonNode *label = node->child; label; label = label->next) {
            std::string found = findText(label->child, key);
            if (!found.empty())
                return found;
        }
    }
    return {};
}

std::string appDetailReply(const std::string &packageId) {
    for (const CatalogueEntry &entry : sim().device.catalogue) {
        if (entry.id != packageId)
            continue;
        std::string location = !entry.location.empty() ? entry.location
                                                       : sim().storeUrl + "ipk/" + entry.id + "_" +
                                                             entry.version + "_all.ipk";
        std::string icon =
            !entry.icon.empty() ? entry.icon : sim().storeUrl + "icon/" + entry.id + ".png";
        std::string home = !entry.homeUrl.empty() ? entry.homeUrl : "http://www.velto.example/";
        return "{\"OutGetAppDetailV2\":{\"appDetail\":{\"id\":" + std::to_string(entry.catalogId) +
               ",\"publicApplicationId\":" + jsonQuote(entry.id) +
               ",\"title\":" + jsonQuote(entry.title) + ",\"version\":" + jsonQuote(entry.version) +
               ",\"appSize\":" + std::to_string(entry.size) +
               ",\"appLocation\":" + jsonQuote(location) + ",\"appIcon\":" + jsonQuote(icon) +
               ",\"homeURL\":" + jsonQuote(home) +
               ",\"vendorid\":" + std::to_string(entry.vendorId) + "}}}";
    }
    return "{\"JSONException\":{\"message\":" +
           jsonQuote("Application " + packageId + " not found in catalogue") + "}}";
}

std::string profileReply() {
    std::string apps;
    for (const std::string &id : sim().device.profile)
        appendItem(apps, "{\"publicApplicationId\":" + jsonQuote(id) + "}");
    return "{\"OutGetUserInstalledAppsV2\":{\"userApps\":[" + apps + "]}}";
}

bool faultApplies(const std::string &method) {
    const Faults &faults = sim().device.faults;
    if (faults.storeMethods.empty())
        return true;
    return std::find(faults.storeMethods.begin(), faults.storeMethods.end(), method) !=
           faults.storeMethods.end();
}

void respond(SoupServerMessage *message, unsigned status, const std::string &body) {
    soup_server_message_set_status(message, status, nullptr);
    soup_server_message_set_response(message, "application/json", SOUP_MEMORY_COPY, body.data(),
                                     body.size());
}

// Chunked: every byte its own chunk, so the client's reader sees the reply a byte at a time.
// Truncated: the headers promise the whole reply, half of it comes, and the connection closes.
void respondBroken(SoupServerMessage *message, StoreFault fault, const std::string &reply) {
    soup_server_message_set_status(message, SOUP_STATUS_OK, nullptr);
    SoupMessageHeaders *headers = soup_server_message_get_response_headers(message);
    soup_message_headers_set_content_type(headers, "application/json", nullptr);
    SoupMessageBody *body = soup_server_message_get_response_body(message);
    if (fault == StoreFault::Chunked) {
        soup_message_headers_set_encoding(headers, SOUP_ENCODING_CHUNKED);
        for (char byte : reply)
            soup_message_body_append(body, SOUP_MEMORY_COPY, &byte, 1);
    } else {
        soup_message_headers_set_content_length(headers, reply.size());
        soup_message_headers_replace(headers, "Connection", "close");
        soup_message_body_append(body, SOUP_MEMORY_COPY, reply.data(), reply.size() / 2);
    }
    soup_message_body_complete(body);
}

struct Delayed {
    SoupServerMessage *message;
};

gboolean answerLate(gpointer data) {
    auto *delayed = static_cast<Delayed *>(data);
    soup_server_message_unpause(delayed->message);
    g_object_unref(delayed->message);
    delete delayed;
    return G_SOURCE_REMOVE;
}

void handle(SoupServer *, SoupServerMessage *message, const char *path, GHashTable *, gpointer) {
    SoupMessageBody *requestBody = soup_server_message_get_request_body(message);
    GBytes *bytes = soup_message_body_flatten(requestBody);
    gsize size = 0;
    const char *data = static_cast<const char *>(g_bytes_get_data(bytes, &size));
    std::string body(data ? data : "", size);
    g_bytes_unref(bytes);

    const char *base = strrchr(path, '/');
    std::string method = base ? base + 1 : path;
    recordCall("store", path, method.c_str(), soup_server_message_get_remote_host(message),
               body.c_str());

    if (strcmp(soup_server_message_get_method(message), "POST") != 0) {
        respond(message, SOUP_STATUS_METHOD_NOT_ALLOWED,
                "{\"JSONException\":{\"message\":\"POST only\"}}");
        return;
    }
    std::string prefix = sim().device.storePath;
    bool known = method == "appDetail_ext2" || method == "getUserInstalledApps_ext2";
    if (!known || !g_str_has_prefix(path, prefix.c_str()) ||
        strlen(path) != prefix.size() + method.size()) {
        respond(message, SOUP_STATUS_NOT_FOUND,
                "{\"JSONException\":{\"message\":\"Unknown request\"}}");
        return;
    }

    JsonTree request = jsonParseLenient(body.c_str());
    std::string reply;
    std::string subject;
    if (method == "appDetail_ext2") {
        subject = findText(request.get(), "packageId");
        reply = request ? appDetailReply(subject)
                        : "{\"JSONException\":{\"message\":\"Request not understood\"}}";
    } else {
        reply = request ? profileReply()
                        : "{\"JSONException\":{\"message\":\"Request not understood\"}}";
    }

    StoreFault fault = faultApplies(method) ? sim().device.faults.store : StoreFault::None;
    unsigned status = SOUP_STATUS_OK;
    if (fault == StoreFault::Http500) {
        status = SOUP_STATUS_INTERNAL_SERVER_ERROR;
        reply = "Internal Server Error";
    } else if (fault == StoreFault::Malformed) {
        reply = reply.substr(0, reply.size() / 2); // cut mid-document
    } else if (fault == StoreFault::Garbage) {
        // what a captive portal or a confused proxy sends: not JSON, not text, not even UTF-8
        static const char noise[] = "\x1f\x8b\x08\x00<html>\xc3\x28\xff\xfe{\"\0x]]}";
        reply.assign(noise, sizeof noise - 1);
    }
    recordEvent("store", "\"method\":" + jsonQuote(method) + ",\"package\":" + jsonQuote(subject) +
                             ",\"status\":" + std::to_string(status) +
                             ",\"fault\":" + jsonQuote(storeFaultName(fault)));
    if (fault == StoreFault::Chunked || fault == StoreFault::Truncated)
        respondBroken(message, fault, reply);
    else
        respond(message, status, reply);
    if (fault == StoreFault::Slow && sim().device.faults.storeDelayMs > 0) {
        soup_server_message_pause(message);
        g_timeout_add(sim().device.faults.storeDelayMs, answerLate,
                      new Delayed{static_cast<SoupServerMessage *>(g_object_ref(message))});
    }
}

bool listen(std::string &error) {
    GError *listenError = nullptr;
    if (!soup_server_listen_local(s_server, s_port, SOUP_SERVER_LISTEN_IPV4_ONLY, &listenError)) {
        error = std::string("store: cannot listen on 127.0.0.1:") + std::to_string(s_port) + ": " +
                listenError->message;
        g_error_free(listenError);
        return false;
    }
    if (s_port == 0) {
        GSList *uris = soup_server_get_uris(s_server);
        if (uris)
            s_port = g_uri_get_port(static_cast<GUri *>(uris->data));
        g_slist_free_full(uris, reinterpret_cast<GDestroyNotify>(g_uri_unref));
    }
    s_listening = true;
    return true;
}

// A store that is down from the start still needs an address the daemon can be given: one that
// was free a moment ago and now refuses connections.
int reservePort(std::string &error) {
    GError *socketError = nullptr;
    GSocket *socket = g_socket_new(G_SOCKET_FAMILY_IPV4, G_SOCKET_TYPE_STREAM,
                                   G_SOCKET_PROTOCOL_TCP, &socketError);
    int port = 0;
    if (socket) {
        GInetAddress *loopback = g_inet_address_new_loopback(G_SOCKET_FAMILY_IPV4);
        GSocketAddress *address = g_inet_socket_address_new(loopback, 0);
        if (g_socket_bind(socket, address, TRUE, &socketError)) {
            GSocketAddress *bound = g_socket_get_local_address(socket, &socketError);
            if (bound) {
                port = g_inet_socket_address_get_port(G_INET_SOCKET_ADDRESS(bound));
                g_object_unref(bound);
            }
        }
        g_object_unref(address);
        g_object_unref(loopback);
        g_object_unref(socket);
    }
    if (!port) {
        error = std::string("store: cannot find a free port: ") +
                (socketError ? socketError->message : "unknown");
    }
    if (socketError)
        g_error_free(socketError);
    return port;
}

} // namespace

bool storeStart(int port, std::string &error) {
    s_server = soup_server_new("server-header", "vyxsim-store", nullptr);
    soup_server_add_handler(s_server, nullptr, handle, nullptr, nullptr);
    s_port = port;
    if (sim().device.faults.store == StoreFault::Down) {
        if (!s_port && !(s_port = reservePort(error)))
            return false;
    } else if (!listen(error)) {
        return false;
    }
    sim().storeUrl = "http://127.0.0.1:" + std::to_string(s_port) + sim().device.storePath;
    return true;
}

bool storeApplyFault(std::string &error) {
    bool down = sim().device.faults.store == StoreFault::Down;
    if (down && s_listening) {
        soup_server_disconnect(s_server);
        s_listening = false;
    } else if (!down && !s_listening) {
        return listen(error);
    }
    return true;
}

void storeStop() {
    if (!s_server)
        return;
    soup_server_disconnect(s_server);
    g_object_unref(s_server);
    s_server = nullptr;
    s_listening = false;
}
