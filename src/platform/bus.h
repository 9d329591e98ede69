// The platform's service-bus client library (KS*), carried over D-Bus.
//
// Wire contract, shared with the simulator, the client and the tests:
//  - the bus is the one at DBUS_SESSION_BUS_ADDRESS when set, else the system bus;
//  - a category "/cat" is the object path "/cat" with interface "com.velto.ks", one method per
//    table row, in-signature "s" (JSON payload) and out-signature "s" (JSON reply);
//  - "velto://NAME/cat/method" is a method call to NAME, path "/cat" (or "/"), member "method";
//  - the first reply to a call is its D-Bus method return, every later one is the signal
//    com.velto.ks.Reply (u serial, s payload) sent to the caller's unique name;
//  - a call whose payload has a top-level "subscribe":true keeps its callback for those signals.
#pragma once

#include <glib.h>
#include <stdint.h>

struct BusHandle;
struct BusMessage;

struct BusError {
    int code;
    char *message;
};

// Method handlers and reply callbacks: (handle, message, user context); always return true.
typedef bool (*BusMethodHandler)(BusHandle *handle, BusMessage *message, void *context);

struct BusMethod {
    const char *name;
    BusMethodHandler handler;
    unsigned flags;
};

struct BusSignal {
    const char *name;
    unsigned flags;
};

typedef uint32_t BusToken;

#define KS_INTERFACE "com.velto.ks"
#define KS_REPLY_SIGNAL "Reply"

void KSErrorInit(BusError *error);
void KSErrorFree(BusError *error);

// Opens a private connection; with a name, fails when that well-known name is owned already.
bool KSRegister(const char *serviceName, BusHandle **handle, BusError *error);
// Starts serving from the loop: a named connection owns its name from here on (no queueing),
// so register its categories first.
bool KSGmainAttach(BusHandle *handle, GMainLoop *loop, BusError *error);
bool KSRegisterCategory(BusHandle *handle, const char *category, const BusMethod *methods,
                        const BusSignal *signals, const void *properties, BusError *error);
// Flushes what is queued, then closes and frees the connection.
bool KSUnregister(BusHandle *handle, BusError *error);

// Asynchronous call; the callback runs later from the main loop, never inside KSCall.
// Without a callback the call is sent with NO_REPLY_EXPECTED.
bool KSCall(BusHandle *handle, const char *uri, const char *payload, BusMethodHandler callback,
            void *context, BusToken *token, BusError *error);
bool KSMessageReply(BusHandle *handle, BusMessage *message, const char *payload, BusError *error);

const char *KSMessageGetPayload(BusMessage *message);
void KSMessageRef(BusMessage *message);
void KSMessageUnref(BusMessage *message);

// Beyond the platform's list, for the simulator, the tools and the run status.
const char *KSMessageGetSender(BusMessage *message);   // unique name of the caller
const char *KSMessageGetMethod(BusMessage *message);   // member name, e.g. "launch"
const char *KSMessageGetCategory(BusMessage *message); // object path, e.g. "/" or "/control"
const char *KSHandleGetUniqueName(BusHandle *handle);
// Calls gone(data) once the caller of `message` has left the bus; 0 when it can't be watched.
// The run status uses it to let go of the subscriptions of callers that are gone.
unsigned KSWatchCallerGone(BusMessage *message, void (*gone)(void *data), void *data);
void KSUnwatchCaller(unsigned watch);

// For the entry points, to tell a person at a terminal why the bus was out of reach: the bus
// KSRegister connects to ("the system bus at ADDRESS", or the session address and where it came
// from; free with g_free), and the message of the last error a KS function reported.
char *KSBusDescription();
const char *KSLastErrorText();

// For tests and fuzz targets only, never the daemon. While on, KSRegister makes handles with no
// bus behind them: names and categories are kept in the handle, every well-formed call is
// accepted and dropped (its callback never runs), and replies to dispatched messages go nowhere.
// That runs the daemon's modules in-process at full speed with nothing to start or tear down.
void KSSetBuslessForTest(bool busless);
// Runs the handler that `method` has in `category` of a busless handle, as a bus call would;
// false when there is no such method.
bool KSDispatchForTest(BusHandle *handle, const char *category, const char *method,
                       const char *payload);
// A message carrying `payload`, as a reply callback receives it; drop it with KSMessageUnref.
BusMessage *KSMessageNewForTest(const char *payload);
