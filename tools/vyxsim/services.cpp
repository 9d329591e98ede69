#include "services.h"

#include <glib.h>

#include <cstring>
#include <deque>
#include <list>
#include <memory>

#include "records.h"
#include "sim_json.h"

namespace {

struct Service {
    std::string name;
    std::string category;
    std::vector<MethodRow> rows;
    std::vector<BusMethod> table; // rows as the bus layer wants them, ended by a null row
    BusHandle *handle = nullptr;
};

struct Kept {
    BusHandle *handle;
    BusMessage *message;
    std::string topic;
    Subscriber who;
};

// Services live in a deque: the bus layer may keep pointers into their method tables.
std::deque<Service> s_services;
std::list<Kept> s_kept;
GMainLoop *s_loop = nullptr;
BusHandle *s_outgoing = nullptr;

Service *byName(const std::string &name) {
    for (Service &service : s_services)
        if (service.name == name)
            return &service;
    return nullptr;
}

Service *byHandle(BusHandle *handle) {
    for (Service &service : s_services)
        if (service.handle == handle)
            return &service;
    return nullptr;
}

bool dispatch(BusHandle *handle, BusMessage *message, void *) {
    Service *service = byHandle(handle);
    if (!service)
        return true;
    const char *method = KSMessageGetMethod(message);
    const char *payload = KSMessageGetPayload(message);
    const char *sender = KSMessageGetSender(message);
    recordCall(service->name.c_str(), KSMessageGetCategory(message), method, sender, payload);

    Call call;
    call.handle = handle;
    call.message = message;
    call.service = service->name.c_str();
    call.method = method ? method : "";
    call.sender = sender ? sender : "";
    call.payload = payload ? payload : "";
    call.json = jsonParse(call.payload);
    for (const MethodRow &row : service->rows)
        if (call.method == row.name) {
            row.fn(call);
            break;
        }
    if (!call.answered)
        call.fail("Unknown method " + call.method);
    return true;
}

void dropKept(std::list<Kept>::iterator it) {
    KSMessageUnref(it->message);
    s_kept.erase(it);
}

bool registerService(Service &service, std::string &error) {
    BusError busError;
    KSErrorInit(&busError);
    bool ok = KSRegister(service.name.c_str(), &service.handle, &busError) &&
              KSRegisterCategory(service.handle, service.category.c_str(), service.table.data(),
                                 nullptr, nullptr, &busError) &&
              KSGmainAttach(service.handle, s_loop, &busError);
    if (!ok) {
        error = "cannot register " + service.name + ": " +
                (busError.message ? busError.message : "unknown error");
        if (service.handle) {
            BusError closeError;
            KSErrorInit(&closeError);
            KSUnregister(service.handle, &closeError);
            KSErrorFree(&closeError);
            service.handle = nullptr;
        }
    }
    KSErrorFree(&busError);
    return ok;
}

void unregisterService(Service &service) {
    if (!service.handle)
        return;
    // Kept calls belong to the connection that is about to go.
    for (auto it = s_kept.begin(); it != s_kept.end();) {
        auto next = std::next(it);
        if (it->handle == service.handle)
            dropKept(it);
        it = next;
    }
    BusError error;
    KSErrorInit(&error);
    KSUnregister(service.handle, &error);
    KSErrorFree(&error);
    service.handle = nullptr;
}

} // namespace

std::string failureReply(const std::string &errorText) {
    return "{\"returnValue\":false,\"errorCode\":-1,\"errorText\":\"" + jsonEscape(errorText) +
           "\"}";
}

void Call::reply(const std::string &text) {
    if (answered)
        return;
    answered = true;
    BusError error;
    KSErrorInit(&error);
    if (!KSMessageReply(handle, message, text.c_str(), &error))
        g_printerr("vyxsim: %s/%s: reply failed: %s\n", service, method.c_str(),
                   error.message ? error.message : "unknown error");
    KSErrorFree(&error);
}

void Call::fail(const std::string &errorText) {
    reply(failureReply(errorText));
}

void Call::keep(const std::string &topic, const std::string &filter) {
    KSMessageRef(message);
    s_kept.push_back(Kept{handle, message, topic, Subscriber{service, sender, filter}});
}

void serviceDefine(const char *name, const char *category, std::vector<MethodRow> rows) {
    Service &service = s_services.emplace_back();
    service.name = name;
    service.category = category;
    service.rows = std::move(rows);
    for (const MethodRow &row : service.rows)
        service.table.push_back(BusMethod{row.name, dispatch, 0});
    service.table.push_back(BusMethod{nullptr, nullptr, 0});
}

bool servicesStart(GMainLoop *loop, const std::vector<std::string> &notRunning,
                   std::string &error) {
    s_loop = loop;
    BusError busError;
    KSErrorInit(&busError);
    bool ok =
        KSRegister(nullptr, &s_outgoing, &busError) && KSGmainAttach(s_outgoing, loop, &busError);
    if (!ok)
        error = std::string("cannot connect to the bus: ") +
                (busError.message ? busError.message : "unknown error");
    KSErrorFree(&busError);
    if (!ok)
        return false;
    for (const std::string &name : notRunning)
        if (!byName(name)) {
            error = "faults.notRunning: " + name + " is not a simulated service";
            return false;
        }
    for (Service &service : s_services) {
        bool down = false;
        for (const std::string &name : notRunning)
            down = down || name == service.name;
        if (!down && !registerService(service, error))
            return false;
    }
    return true;
}

void servicesStop() {
    for (Service &service : s_services)
        unregisterService(service);
    if (s_outgoing) {
        BusError error;
        KSErrorInit(&error);
        KSUnregister(s_outgoing, &error);
        KSErrorFree(&error);
        s_outgoing = nullptr;
    }
}

bool serviceSetRunning(const std::string &name, bool running, std::string &error) {
    Service *service = byName(name);
    if (!service) {
        error = name + " is not a simulated service";
        return false;
    }
    if (running == (service->handle != nullptr))
        return true;
    if (!running) {
        unregisterService(*service);
        return true;
    }
    return registerService(*service, error);
}

bool serviceIsRunning(const std::string &name) {
    Service *service = byName(name);
    return service && service->handle;
}

bool serviceKnown(const std::string &name) {
    return byName(name) != nullptr;
}

std::vector<std::string> serviceNames() {
    std::vector<std::string> names;
    for (const Service &service : s_services)
        names.push_back(service.name);
    return names;
}

size_t publishEach(const std::string &topic,
                   const std::function<std::string(const Subscriber &)> &payloadFor) {
    size_t reached = 0;
    for (auto it = s_kept.begin(); it != s_kept.end();) {
        auto next = std::next(it);
        if (it->topic == topic) {
            std::string payload = payloadFor(it->who);
            if (!payload.empty()) {
                BusError error;
                KSErrorInit(&error);
                if (KSMessageReply(it->handle, it->message, payload.c_str(), &error))
                    ++reached;
                else
                    dropKept(it); // the caller is gone
                KSErrorFree(&error);
            }
        }
        it = next;
    }
    return reached;
}

size_t publish(const std::string &topic, const std::string &payload) {
    return publishEach(topic, [&](const Subscriber &) { return payload; });
}

SubscribeRequest subscribeRequest(const Call &call) {
    const JsonNode *subscribe = jsonMember(call.json.get(), "subscribe");
    if (subscribe && subscribe->type == JSON_TRUE)
        return SubscribeRequest::Subscribe;
    if (subscribe && subscribe->type == JSON_FALSE)
        return SubscribeRequest::Unsubscribe;
    return SubscribeRequest::None;
}

bool endSubscription(Call &call, const std::string &topic) {
    if (subscribeRequest(call) != SubscribeRequest::Unsubscribe)
        return false;
    unsubscribe(topic, call.sender);
    call.ok();
    return true;
}

size_t unsubscribe(const std::string &topic, const std::string &sender) {
    size_t dropped = 0;
    for (auto it = s_kept.begin(); it != s_kept.end();) {
        auto next = std::next(it);
        if (it->topic == topic && it->who.sender == sender) {
            dropKept(it);
            ++dropped;
        }
        it = next;
    }
    return dropped;
}

BusHandle *outgoingHandle() {
    return s_outgoing;
}
