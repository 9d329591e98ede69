// A platform service played by a test: owns a bus name, answers the methods it is given, and
// records every call it receives, in one order shared by all fakes.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/bus.h"

struct RecordedCall {
    std::string service, category, method, payload;
};

class FakeService {
  public:
    // Gets the call; replies through KSMessageReply, or keeps a reference to answer later.
    using Responder = std::function<void(BusHandle *, BusMessage *)>;

    explicit FakeService(std::string name) : m_name(std::move(name)) {}
    ~FakeService() { stop(); }
    FakeService(const FakeService &) = delete;
    FakeService &operator=(const FakeService &) = delete;

    // category is "/" or "/cat"; the fixed reply is sent as it is.
    FakeService &reply(const std::string &category, const std::string &method, std::string payload);
    FakeService &handle(const std::string &category, const std::string &method, Responder r) {
        m_responders[category][method] = std::move(r);
        return *this;
    }
    // Sends no reply at all: the caller's callback never runs.
    FakeService &silent(const std::string &category, const std::string &method);

    bool start(); // owns the name and publishes the methods
    void stop();  // gives the name up: callers then get the "not running" reply

    std::vector<RecordedCall> calls(const std::string &method) const;
    int count(const std::string &method) const { return static_cast<int>(calls(method).size()); }
    std::string lastPayload(const std::string &method) const;

    // Every call received by any fake, in arrival order.
    static std::vector<RecordedCall> &all() { return s_all; }

  private:
    static bool dispatch(BusHandle *handle, BusMessage *message, void *context);
    static inline std::vector<RecordedCall> s_all;

    std::string m_name;
    BusHandle *m_handle = nullptr;
    std::map<std::string, std::map<std::string, Responder>> m_responders; // category -> method
    std::vector<RecordedCall> m_calls;
    std::vector<BusMessage *> m_held; // calls kept unanswered by silent()
};

// A caller on the bus, as another application would be.
class BusClient {
  public:
    BusClient();
    ~BusClient() { KSUnregister(m_handle, nullptr); }
    // Calls and waits for the first reply; returns the reply payload or "" on timeout.
    std::string call(const std::string &uri, const std::string &payload, int timeoutMs = 5000);
    // Calls without waiting; replies are collected in replies().
    bool send(const std::string &uri, const std::string &payload);
    const std::vector<std::string> &replies() const { return m_replies; }

  private:
    static bool onReply(BusHandle *handle, BusMessage *reply, void *context);
    BusHandle *m_handle = nullptr;
    std::vector<std::string> m_replies;
};
