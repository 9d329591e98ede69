#include "platform/bus.h"

#include <gio/gio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "platform/json.h"

namespace {

constexpr int BUS_ERROR_GENERIC = -1;

// One reply callback waiting for a call's answer; a subscription keeps it for later replies.
struct PendingCall {
    int refs;
    BusHandle *handle; // null once the handle is gone
    BusMethodHandler callback;
    void *context;
    bool subscribe;
    guint32 serial;
    char *destination;
    char *replySender; // unique name that answered, the only one whose Reply signals count
};

struct Category {
    BusHandle *handle;
    std::string path;
    std::vector<BusMethod> methods;
    GDBusNodeInfo *info;
    guint registrationId;
};

} // namespace

struct BusHandle {
    GDBusConnection *connection;
    char *serviceName;
    bool nameOwned;
    GCancellable *cancellable;
    guint replySubscription;
    GHashTable *subscriptions; // serial -> PendingCall*
    std::vector<Category *> categories;
};

struct BusMessage {
    int refs;
    char *payload;
    GDBusConnection *connection;
    GDBusMethodInvocation *invocation; // an incoming call not yet answered by its method return
    bool answered;
    char *sender;
    char *method;
    char *path;
    guint32 serial;
    bool busless; // dispatched on a busless handle: its reply goes nowhere
};

static bool s_busless = false;
static guint32 s_buslessSerial = 0;

static std::string s_lastError;

static void setError(BusError *error, int code, const char *message) {
    s_lastError = message ? message : "";
    if (!error)
        return;
    g_free(error->message);
    error->code = code;
    error->message = g_strdup(message ? message : "");
}

static void setGError(BusError *error, const GError *gerror) {
    setError(error, gerror ? gerror->code : BUS_ERROR_GENERIC,
             gerror ? gerror->message : "unknown error");
}

void KSErrorInit(BusError *error) {
    if (!error)
        return;
    error->code = 0;
    error->message = nullptr;
}

void KSErrorFree(BusError *error) {
    if (!error)
        return;
    g_free(error->message);
    error->message = nullptr;
    error->code = 0;
}

// ---------------------------------------------------------------------------------------------
// Messages

static BusMessage *messageNew(const char *payload) {
    auto *message = g_new0(BusMessage, 1);
    message->refs = 1;
    message->payload = g_strdup(payload ? payload : "");
    return message;
}

void KSMessageRef(BusMessage *message) {
    if (message)
        message->refs++;
}

void KSMessageUnref(BusMessage *message) {
    if (!message || --message->refs > 0)
        return;
    if (message->invocation) {
        // A call its service leaves unanswered gets no reply: an error made up here would reach
        // the caller as an answer the service never gave. The bus tells the caller when this
        // connection goes.
        g_object_unref(message->invocation);
    }
    if (message->connection)
        g_object_unref(message->connection);
    g_free(message->payload);
    g_free(message->sender);
    g_free(message->method);
    g_free(message->path);
    g_free(message);
}

const char *KSMessageGetPayload(BusMessage *message) {
    return message ? message->payload : nullptr;
}
const char *KSMessageGetSender(BusMessage *message) {
    return message ? message->sender : nullptr;
}
const char *KSMessageGetMethod(BusMessage *message) {
    return message ? message->method : nullptr;
}
const char *KSMessageGetCategory(BusMessage *message) {
    return message ? message->path : nullptr;
}

const char *KSHandleGetUniqueName(BusHandle *handle) {
    return handle && handle->connection ? g_dbus_connection_get_unique_name(handle->connection)
                                        : nullptr;
}

namespace {
struct CallerWatch {
    void (*gone)(void *data);
    void *data;
};
} // namespace

static void onCallerVanished(GDBusConnection *, const char *, gpointer data) {
    auto *watch = static_cast<CallerWatch *>(data);
    watch->gone(watch->data);
}

unsigned KSWatchCallerGone(BusMessage *message, void (*gone)(void *data), void *data) {
    if (!message || !message->connection || !message->sender || !gone)
        return 0;
    return g_bus_watch_name_on_connection(
        message->connection, message->sender, G_BUS_NAME_WATCHER_FLAGS_NONE, nullptr,
        onCallerVanished, new CallerWatch{gone, data},
        [](gpointer watch) { delete static_cast<CallerWatch *>(watch); });
}

void KSUnwatchCaller(unsigned watch) {
    if (watch)
        g_bus_unwatch_name(watch);
}

// D-Bus strings must be valid UTF-8; a payload that is not is repaired, never dropped.
static GVariant *payloadVariant(const char *payload) {
    g_autofree char *valid = g_utf8_make_valid(payload ? payload : "", -1);
    return g_variant_new("(s)", valid);
}

bool KSMessageReply(BusHandle *handle, BusMessage *message, const char *payload, BusError *error) {
    (void)handle; // the reply goes back on the connection the call arrived on
    if (message && message->busless) {
        message->answered = true;
        return true;
    }
    if (!message || !message->connection) {
        setError(error, BUS_ERROR_GENERIC, "Not a method call");
        return false;
    }
    if (message->invocation) {
        GDBusMethodInvocation *invocation = message->invocation;
        message->invocation = nullptr;
        message->answered = true;
        g_dbus_method_invocation_return_value(invocation, payloadVariant(payload));
        return true;
    }
    if (!message->answered || !message->sender) {
        setError(error, BUS_ERROR_GENERIC, "Not a method call");
        return false;
    }
    g_autofree char *valid = g_utf8_make_valid(payload ? payload : "", -1);
    GError *gerror = nullptr;
    if (!g_dbus_connection_emit_signal(message->connection, message->sender, message->path,
                                       KS_INTERFACE, KS_REPLY_SIGNAL,
                                       g_variant_new("(us)", message->serial, valid), &gerror)) {
        setGError(error, gerror);
        g_error_free(gerror);
        return false;
    }
    return true;
}

// ---------------------------------------------------------------------------------------------
// Connections

static PendingCall *pendingRef(PendingCall *call) {
    call->refs++;
    return call;
}

static void pendingUnref(gpointer data) {
    auto *call = static_cast<PendingCall *>(data);
    if (!call || --call->refs > 0)
        return;
    g_free(call->destination);
    g_free(call->replySender);
    g_free(call);
}

static void deliver(PendingCall *call, const char *payload) {
    BusMessage *reply = messageNew(payload);
    call->callback(call->handle, reply, call->context);
    KSMessageUnref(reply);
}

static void onReplySignal(GDBusConnection *, const char *sender, const char *, const char *,
                          const char *, GVariant *parameters, gpointer data) {
    auto *handle = static_cast<BusHandle *>(data);
    if (!g_variant_is_of_type(parameters, G_VARIANT_TYPE("(us)")))
        return;
    guint32 serial = 0;
    const char *payload = nullptr;
    g_variant_get(parameters, "(u&s)", &serial, &payload);
    auto *call = static_cast<PendingCall *>(
        g_hash_table_lookup(handle->subscriptions, GUINT_TO_POINTER(serial)));
    if (!call || !call->handle)
        return;
    if (call->replySender && g_strcmp0(call->replySender, sender) != 0)
        return;
    pendingRef(call);
    deliver(call, payload);
    pendingUnref(call);
}

static std::string busAddress(GError **gerror) {
    const char *session = getenv("DBUS_SESSION_BUS_ADDRESS");
    if (session && *session)
        return session;
    g_autofree char *address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, gerror);
    return address ? address : "";
}

char *KSBusDescription() {
    const char *session = getenv("DBUS_SESSION_BUS_ADDRESS");
    if (session && *session)
        return g_strdup_printf("the bus at %s (from DBUS_SESSION_BUS_ADDRESS)", session);
    g_autofree char *address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    return address ? g_strdup_printf("the system bus at %s", address) : g_strdup("the system bus");
}

const char *KSLastErrorText() {
    return s_lastError.c_str();
}

static bool requestName(GDBusConnection *connection, const char *name, BusError *error) {
    constexpr guint32 DO_NOT_QUEUE = 4, PRIMARY_OWNER = 1, ALREADY_OWNER = 4;
    GError *gerror = nullptr;
    GVariant *result = g_dbus_connection_call_sync(
        connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "RequestName", g_variant_new("(su)", name, DO_NOT_QUEUE), G_VARIANT_TYPE("(u)"),
        G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &gerror);
    if (!result) {
        setGError(error, gerror);
        g_error_free(gerror);
        return false;
    }
    guint32 answer = 0;
    g_variant_get(result, "(u)", &answer);
    g_variant_unref(result);
    if (answer != PRIMARY_OWNER && answer != ALREADY_OWNER) {
        g_autofree char *text = g_strdup_printf("The name %s is owned by another connection", name);
        setError(error, BUS_ERROR_GENERIC, text);
        return false;
    }
    return true;
}

static bool nameIsFree(GDBusConnection *connection, const char *name, BusError *error) {
    GError *gerror = nullptr;
    GVariant *result = g_dbus_connection_call_sync(
        connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "NameHasOwner", g_variant_new("(s)", name), G_VARIANT_TYPE("(b)"), G_DBUS_CALL_FLAGS_NONE,
        -1, nullptr, &gerror);
    if (!result) {
        setGError(error, gerror);
        g_error_free(gerror);
        return false;
    }
    gboolean owned = FALSE;
    g_variant_get(result, "(b)", &owned);
    g_variant_unref(result);
    if (owned) {
        g_autofree char *text = g_strdup_printf("The name %s is owned by another connection", name);
        setError(error, BUS_ERROR_GENERIC, text);
    }
    return !owned;
}

bool KSRegister(const char *serviceName, BusHandle **handle, BusError *error) {
    if (!handle) {
        setError(error, BUS_ERROR_GENERIC, "Invalid parameters");
        return false;
    }
    *handle = nullptr;
    if (serviceName && !g_dbus_is_name(serviceName)) {
        setError(error, BUS_ERROR_GENERIC, "Invalid service name");
        return false;
    }
    if (s_busless) {
        auto *created = new BusHandle();
        created->serviceName = g_strdup(serviceName);
        created->cancellable = g_cancellable_new();
        created->subscriptions =
            g_hash_table_new_full(g_direct_hash, g_direct_equal, nullptr, pendingUnref);
        *handle = created;
        return true;
    }
    GError *gerror = nullptr;
    std::string address = busAddress(&gerror);
    if (address.empty()) {
        setGError(error, gerror);
        g_clear_error(&gerror);
        return false;
    }
    GDBusConnection *connection = g_dbus_connection_new_for_address_sync(
        address.c_str(),
        GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                             G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, &gerror);
    if (!connection) {
        setGError(error, gerror);
        g_error_free(gerror);
        return false;
    }
    // Losing the bus must not end the process behind the service's back.
    g_dbus_connection_set_exit_on_close(connection, FALSE);
    if (serviceName && !nameIsFree(connection, serviceName, error)) {
        g_dbus_connection_close_sync(connection, nullptr, nullptr);
        g_object_unref(connection);
        return false;
    }

    auto *created = new BusHandle();
    created->connection = connection;
    created->serviceName = g_strdup(serviceName);
    created->cancellable = g_cancellable_new();
    created->subscriptions =
        g_hash_table_new_full(g_direct_hash, g_direct_equal, nullptr, pendingUnref);
    created->replySubscription = g_dbus_connection_signal_subscribe(
        connection, nullptr, KS_INTERFACE, KS_REPLY_SIGNAL, nullptr, nullptr,
        G_DBUS_SIGNAL_FLAGS_NONE, onReplySignal, created, nullptr);
    *handle = created;
    return true;
}

// GDBus dispatches on the default main context the loop runs, so attaching is when a named
// service starts to serve: its name is owned only now, after its categories are published, so
// no caller ever finds the name without the methods behind it.
bool KSGmainAttach(BusHandle *handle, GMainLoop *loop, BusError *error) {
    if (!handle || !loop) {
        setError(error, BUS_ERROR_GENERIC, "Invalid parameters");
        return false;
    }
    if (handle->serviceName && !handle->nameOwned && handle->connection) {
        if (!requestName(handle->connection, handle->serviceName, error))
            return false;
        handle->nameOwned = true;
    }
    return true;
}

// ---------------------------------------------------------------------------------------------
// Categories

static void onMethodCall(GDBusConnection *connection, const char *sender, const char *path,
                         const char *, const char *method, GVariant *parameters,
                         GDBusMethodInvocation *invocation, gpointer data) {
    auto *category = static_cast<Category *>(data);
    const BusMethod *row = nullptr;
    for (const BusMethod &candidate : category->methods)
        if (g_strcmp0(candidate.name, method) == 0)
            row = &candidate;
    if (!row || !row->handler) {
        g_dbus_method_invocation_return_dbus_error(
            invocation, "org.freedesktop.DBus.Error.UnknownMethod", "No such method");
        return;
    }
    const char *payload = "";
    if (g_variant_is_of_type(parameters, G_VARIANT_TYPE("(s)")))
        g_variant_get(parameters, "(&s)", &payload);

    BusMessage *message = messageNew(payload);
    message->connection = G_DBUS_CONNECTION(g_object_ref(connection));
    message->invocation = invocation;
    message->sender = g_strdup(sender);
    message->method = g_strdup(method);
    message->path = g_strdup(path);
    message->serial = g_dbus_message_get_serial(g_dbus_method_invocation_get_message(invocation));
    row->handler(category->handle, message, nullptr);
    KSMessageUnref(message);
}

static const GDBusInterfaceVTable s_vtable = {onMethodCall, nullptr, nullptr, {nullptr}};

static GDBusNodeInfo *categoryIntrospection(const std::vector<BusMethod> &methods,
                                            GError **gerror) {
    GString *xml = g_string_new("<node><interface name='" KS_INTERFACE "'>");
    for (const BusMethod &method : methods)
        g_string_append_printf(xml,
                               "<method name='%s'><arg type='s' name='payload' direction='in'/>"
                               "<arg type='s' name='reply' direction='out'/></method>",
                               method.name);
    g_string_append(xml, "<signal name='" KS_REPLY_SIGNAL "'><arg type='u' name='serial'/>"
                         "<arg type='s' name='payload'/></signal></interface></node>");
    GDBusNodeInfo *info = g_dbus_node_info_new_for_xml(xml->str, gerror);
    g_string_free(xml, TRUE);
    return info;
}

bool KSRegisterCategory(BusHandle *handle, const char *category, const BusMethod *methods,
                        const BusSignal *, const void *, BusError *error) {
    if (!handle || !category || !methods || !g_variant_is_object_path(category)) {
        setError(error, BUS_ERROR_GENERIC, "Invalid parameters");
        return false;
    }
    auto *created = new Category();
    created->handle = handle;
    created->path = category;
    for (const BusMethod *row = methods; row->name; ++row) {
        if (!g_dbus_is_member_name(row->name)) {
            g_autofree char *text = g_strdup_printf("Invalid method name: %s", row->name);
            setError(error, BUS_ERROR_GENERIC, text);
            delete created;
            return false;
        }
        created->methods.push_back(*row);
    }
    if (!handle->connection) {
        handle->categories.push_back(created);
        return true;
    }
    GError *gerror = nullptr;
    created->info = categoryIntrospection(created->methods, &gerror);
    if (created->info)
        created->registrationId = g_dbus_connection_register_object(
            handle->connection, category, created->info->interfaces[0], &s_vtable, created, nullptr,
            &gerror);
    if (!created->info || !created->registrationId) {
        setGError(error, gerror);
        g_clear_error(&gerror);
        if (created->info)
            g_dbus_node_info_unref(created->info);
        delete created;
        return false;
    }
    handle->categories.push_back(created);
    return true;
}

bool KSUnregister(BusHandle *handle, BusError *error) {
    if (!handle) {
        setError(error, BUS_ERROR_GENERIC, "Invalid parameters");
        return false;
    }
    // Calls still in flight are answered to nobody: their callbacks must not see a freed handle.
    g_cancellable_cancel(handle->cancellable);
    GHashTableIter iter;
    gpointer value = nullptr;
    g_hash_table_iter_init(&iter, handle->subscriptions);
    while (g_hash_table_iter_next(&iter, nullptr, &value))
        static_cast<PendingCall *>(value)->handle = nullptr;
    g_hash_table_destroy(handle->subscriptions);
    if (handle->connection)
        g_dbus_connection_signal_unsubscribe(handle->connection, handle->replySubscription);
    for (Category *category : handle->categories) {
        if (handle->connection)
            g_dbus_connection_unregister_object(handle->connection, category->registrationId);
        if (category->info)
            g_dbus_node_info_unref(category->info);
        delete category;
    }
    // What was sent on the way out (a withdrawal, a last reply) must reach the bus first.
    bool ok = true;
    GError *gerror = nullptr;
    if (handle->connection &&
        (!g_dbus_connection_flush_sync(handle->connection, nullptr, &gerror) ||
         !g_dbus_connection_close_sync(handle->connection, nullptr, &gerror))) {
        setGError(error, gerror);
        g_clear_error(&gerror);
        ok = false;
    }
    g_clear_object(&handle->connection);
    g_object_unref(handle->cancellable);
    g_free(handle->serviceName);
    delete handle;
    return ok;
}

// ---------------------------------------------------------------------------------------------
// Calls

struct Address {
    std::string name, path, method;
};

static bool parseAddress(const char *uri, Address *address) {
    static const char scheme[] = "velto://";
    if (!uri || !g_str_has_prefix(uri, scheme))
        return false;
    const char *rest = uri + strlen(scheme);
    const char *slash = strchr(rest, '/');
    if (!slash)
        return false;
    address->name.assign(rest, slash - rest);
    const char *last = strrchr(slash, '/');
    address->path.assign(slash, last - slash);
    if (address->path.empty())
        address->path.assign(1, '/');
    address->method = last + 1;
    return g_dbus_is_name(address->name.c_str()) && !g_dbus_is_unique_name(address->name.c_str()) &&
           g_variant_is_object_path(address->path.c_str()) &&
           g_dbus_is_member_name(address->method.c_str());
}

static bool isSubscription(const char *payload) {
    JsonTree tree = jsonParse(payload);
    if (!tree || tree->type != JSON_OBJECT)
        return false;
    const JsonNode *label = json_find_first_label(tree.get(), "subscribe");
    return label && label->child && label->child->type == JSON_TRUE;
}

static char *notRunningPayload(const char *service) {
    return g_strdup_printf("{\"returnValue\":false,\"errorCode\":-1,\"errorText\":\"%s is not "
                           "running.\",\"serviceName\":\"%s\"}",
                           service, service);
}

// A JSON string body: quotes, backslashes and control characters escaped, UTF-8 kept as is.
static char *jsonEscape(const char *text) {
    GString *out = g_string_new(nullptr);
    for (const char *p = text; *p; ++p) {
        unsigned char c = static_cast<unsigned char>(*p);
        if (c == '"' || c == '\\')
            g_string_append_c(out, '\\');
        if (c < 0x20)
            g_string_append_printf(out, "\\u%04x", c);
        else
            g_string_append_c(out, static_cast<char>(c));
    }
    return g_string_free(out, FALSE);
}

static char *errorPayload(const char *text) {
    g_autofree char *escaped = jsonEscape(text ? text : "");
    return g_strdup_printf("{\"returnValue\":false,\"errorCode\":-1,\"errorText\":\"%s\"}",
                           escaped);
}

// The payload a caller sees for a failed call.
static char *failurePayload(PendingCall *call, GError *gerror) {
    if (g_error_matches(gerror, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
        g_error_matches(gerror, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER))
        return notRunningPayload(call->destination);
    if (g_dbus_error_is_remote_error(gerror))
        g_dbus_error_strip_remote_error(gerror);
    return errorPayload(gerror->message);
}

static void onMethodReply(GObject *source, GAsyncResult *result, gpointer data) {
    auto *call = static_cast<PendingCall *>(data);
    GError *gerror = nullptr;
    GDBusMessage *reply = g_dbus_connection_send_message_with_reply_finish(
        G_DBUS_CONNECTION(source), result, &gerror);
    if (!call->handle || g_error_matches(gerror, G_IO_ERROR, G_IO_ERROR_CANCELLED)) {
        g_clear_error(&gerror);
        g_clear_object(&reply);
        pendingUnref(call);
        return;
    }
    char *payload = nullptr;
    bool failed = true;
    if (!reply) {
        payload = failurePayload(call, gerror);
    } else if (g_dbus_message_to_gerror(reply, &gerror)) {
        payload = failurePayload(call, gerror);
    } else {
        GVariant *body = g_dbus_message_get_body(reply);
        if (body && g_variant_is_of_type(body, G_VARIANT_TYPE("(s)"))) {
            const char *text = nullptr;
            g_variant_get(body, "(&s)", &text);
            payload = g_strdup(text);
            failed = false;
            g_free(call->replySender);
            call->replySender = g_strdup(g_dbus_message_get_sender(reply));
        } else {
            payload = errorPayload("Reply of unexpected type");
        }
    }
    g_clear_error(&gerror);
    g_clear_object(&reply);

    if (call->subscribe && failed)
        g_hash_table_remove(call->handle->subscriptions, GUINT_TO_POINTER(call->serial));
    deliver(call, payload);
    g_free(payload);
    pendingUnref(call);
}

bool KSCall(BusHandle *handle, const char *uri, const char *payload, BusMethodHandler callback,
            void *context, BusToken *token, BusError *error) {
    if (!handle) {
        setError(error, BUS_ERROR_GENERIC, "Invalid handle");
        return false;
    }
    Address address;
    if (!parseAddress(uri, &address)) {
        g_autofree char *text = g_strdup_printf("Invalid service address: %s", uri ? uri : "NULL");
        setError(error, BUS_ERROR_GENERIC, text);
        return false;
    }
    if (!handle->connection) {
        if (token)
            *token = ++s_buslessSerial;
        return true;
    }
    GDBusMessage *message = g_dbus_message_new_method_call(
        address.name.c_str(), address.path.c_str(), KS_INTERFACE, address.method.c_str());
    g_dbus_message_set_body(message, payloadVariant(payload));
    // Calls may start a service the bus knows how to activate, as the daemon itself is started:
    // a service that is neither running nor activatable still fails as not running.
    GDBusMessageFlags flags = G_DBUS_MESSAGE_FLAGS_NONE;
    if (!callback)
        flags = GDBusMessageFlags(flags | G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED);
    g_dbus_message_set_flags(message, flags);

    GError *gerror = nullptr;
    guint32 serial = 0;
    bool sent;
    if (!callback) {
        sent = g_dbus_connection_send_message(handle->connection, message,
                                              G_DBUS_SEND_MESSAGE_FLAGS_NONE, &serial, &gerror);
    } else {
        auto *call = g_new0(PendingCall, 1);
        call->refs = 1;
        call->handle = handle;
        call->callback = callback;
        call->context = context;
        call->subscribe = isSubscription(payload);
        call->destination = g_strdup(address.name.c_str());
        // The reply arrives through the main loop even when the connection fails at once.
        g_dbus_connection_send_message_with_reply(handle->connection, message,
                                                  G_DBUS_SEND_MESSAGE_FLAGS_NONE, G_MAXINT, &serial,
                                                  handle->cancellable, onMethodReply, call);
        call->serial = serial;
        sent = serial != 0;
        if (call->subscribe && sent)
            g_hash_table_insert(handle->subscriptions, GUINT_TO_POINTER(serial), pendingRef(call));
        if (!sent) {
            // GDBus still completes the call with an error; nobody may hear of it.
            call->handle = nullptr;
            setError(error, BUS_ERROR_GENERIC, "The connection is closed");
        }
    }
    g_object_unref(message);
    if (gerror) {
        setGError(error, gerror);
        g_error_free(gerror);
    }
    if (token)
        *token = serial;
    return sent;
}

// ---------------------------------------------------------------------------------------------
// Busless handles, for tests and fuzz targets

void KSSetBuslessForTest(bool busless) {
    s_busless = busless;
}

bool KSDispatchForTest(BusHandle *handle, const char *category, const char *method,
                       const char *payload) {
    if (!handle || handle->connection || !category || !method)
        return false;
    for (Category *candidate : handle->categories) {
        if (candidate->path != category)
            continue;
        for (const BusMethod &row : candidate->methods) {
            if (g_strcmp0(row.name, method) != 0 || !row.handler)
                continue;
            BusMessage *message = messageNew(payload);
            message->busless = true;
            message->method = g_strdup(method);
            message->path = g_strdup(category);
            message->serial = ++s_buslessSerial;
            row.handler(handle, message, nullptr);
            KSMessageUnref(message);
            return true;
        }
    }
    return false;
}

BusMessage *KSMessageNewForTest(const char *payload) {
    return messageNew(payload);
}
