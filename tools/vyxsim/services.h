// The simulated services on the bus: one connection per service name, one dispatcher for all of
// them, and the subscriptions (calls kept after their first reply so that later replies reach
// the caller as updates).
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/bus.h"
#include "platform/json.h"

struct Call {
    BusHandle *handle = nullptr;
    BusMessage *message = nullptr;
    const char *service = "";
    std::string method;
    std::string sender;
    const char *payload = ""; // never null
    JsonTree json;            // the payload parsed strictly; null when it is not JSON
    bool answered = false;

    void reply(const std::string &text);
    void ok() { reply("{\"returnValue\":true}"); }
    void fail(const std::string &errorText);
    // After the first reply: keep the call so that publish() on `topic` answers it again.
    // `filter` is the subscriber's own selection, read by publishEach().
    void keep(const std::string &topic, const std::string &filter = {});
};

typedef void (*MethodFn)(Call &call);

struct MethodRow {
    const char *name;
    MethodFn fn;
};

struct Subscriber {
    std::string service;
    std::string sender;
    std::string filter;
};

// Declares a service; nothing is on the bus before servicesStart().
void serviceDefine(const char *name, const char *category, std::vector<MethodRow> rows);
// Registers every declared service except those named in `notRunning`, and opens the
// connection through which the simulator makes calls of its own.
bool servicesStart(GMainLoop *loop, const std::vector<std::string> &notRunning, std::string &error);
void servicesStop();
// A service that is not running has no owner on the bus, so callers get the layer's own
// "NAME is not running." reply.
bool serviceSetRunning(const std::string &name, bool running, std::string &error);
bool serviceIsRunning(const std::string &name);
bool serviceKnown(const std::string &name);
std::vector<std::string> serviceNames();

// Sends `payload` to every kept call of `topic`; returns how many were reached.
size_t publish(const std::string &topic, const std::string &payload);
// Same, with a payload per subscriber; an empty text skips that subscriber.
size_t publishEach(const std::string &topic,
                   const std::function<std::string(const Subscriber &)> &payloadFor);
// Forgets the kept calls of `topic` made by `sender`.
size_t unsubscribe(const std::string &topic, const std::string &sender);
// What a call's top-level "subscribe" asks for.
enum class SubscribeRequest { None, Subscribe, Unsubscribe };
SubscribeRequest subscribeRequest(const Call &call);
// A {"subscribe":false} call ends the caller's subscription to `topic` and is answered here;
// true when that happened and the handler has nothing left to do.
bool endSubscription(Call &call, const std::string &topic);

// The unnamed connection for the calls the simulator makes (activity callbacks).
BusHandle *outgoingHandle();

std::string failureReply(const std::string &errorText);
