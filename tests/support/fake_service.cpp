#include "fake_service.h"

#include <gtest/gtest.h>

#include "bus_test.h"

static std::map<BusHandle *, FakeService *> s_registry;

FakeService &FakeService::reply(const std::string &category, const std::string &method,
                                std::string payload) {
    return handle(category, method, [payload](BusHandle *handle, BusMessage *message) {
        KSMessageReply(handle, message, payload.c_str(), nullptr);
    });
}

FakeService &FakeService::silent(const std::string &category, const std::string &method) {
    // Holding a reference keeps the call unanswered until the service stops.
    return handle(category, method, [this](BusHandle *, BusMessage *message) {
        KSMessageRef(message);
        m_held.push_back(message);
    });
}

bool FakeService::dispatch(BusHandle *handle, BusMessage *message, void *) {
    auto found = s_registry.find(handle);
    if (found == s_registry.end())
        return true;
    FakeService *self = found->second;
    RecordedCall call{self->m_name, KSMessageGetCategory(message), KSMessageGetMethod(message),
                      KSMessageGetPayload(message)};
    self->m_calls.push_back(call);
    all().push_back(call);
    auto &methods = self->m_responders[call.category];
    auto responder = methods.find(call.method);
    if (responder != methods.end())
        responder->second(handle, message);
    return true;
}

bool FakeService::start() {
    if (m_handle)
        return true;
    BusError error;
    KSErrorInit(&error);
    bool serving = KSRegister(m_name.c_str(), &m_handle, &error);
    if (serving)
        s_registry[m_handle] = this;
    for (auto &[category, methods] : m_responders) {
        std::vector<BusMethod> table;
        for (auto &entry : methods)
            table.push_back({entry.first.c_str(), dispatch, 0});
        table.push_back({nullptr, nullptr, 0});
        serving = serving && KSRegisterCategory(m_handle, category.c_str(), table.data(), nullptr,
                                                nullptr, &error);
    }
    GMainLoop *loop = g_main_loop_new(nullptr, FALSE);
    serving = serving && KSGmainAttach(m_handle, loop, &error);
    g_main_loop_unref(loop);
    if (!serving)
        ADD_FAILURE() << "cannot serve " << m_name << ": " << (error.message ? error.message : "");
    KSErrorFree(&error);
    return serving;
}

void FakeService::stop() {
    if (!m_handle)
        return;
    s_registry.erase(m_handle);
    KSUnregister(m_handle, nullptr);
    m_handle = nullptr;
    for (BusMessage *message : m_held)
        KSMessageUnref(message);
    m_held.clear();
}

std::vector<RecordedCall> FakeService::calls(const std::string &method) const {
    std::vector<RecordedCall> found;
    for (const RecordedCall &call : m_calls)
        if (call.method == method)
            found.push_back(call);
    return found;
}

std::string FakeService::lastPayload(const std::string &method) const {
    auto found = calls(method);
    return found.empty() ? "" : found.back().payload;
}

BusClient::BusClient() {
    BusError error;
    KSErrorInit(&error);
    if (!KSRegister(nullptr, &m_handle, &error))
        ADD_FAILURE() << "cannot connect: " << (error.message ? error.message : "");
    KSErrorFree(&error);
}

bool BusClient::onReply(BusHandle *, BusMessage *reply, void *context) {
    static_cast<BusClient *>(context)->m_replies.push_back(KSMessageGetPayload(reply));
    return true;
}

bool BusClient::send(const std::string &uri, const std::string &payload) {
    return KSCall(m_handle, uri.c_str(), payload.c_str(), onReply, this, nullptr, nullptr);
}

std::string BusClient::call(const std::string &uri, const std::string &payload, int timeoutMs) {
    size_t before = m_replies.size();
    if (!send(uri, payload))
        return "";
    if (!waitUntil([&] { return m_replies.size() > before; }, "reply to " + uri, timeoutMs))
        return "";
    return m_replies[before];
}
