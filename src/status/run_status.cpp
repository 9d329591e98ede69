#include "status/run_status.h"

#include <glib.h>

#include <vector>

#include "common/json_access.h"
#include "platform/log.h"
#include "service/service.h"
#include "status/run_history.h"
#include "status/run_record.h"

namespace {

struct Subscriber {
    BusHandle *handle;
    BusMessage *message;
    unsigned watch;
};

std::vector<Subscriber> s_subscribers;

std::string replyFor(const std::string &record, bool running) {
    std::string reply = "{\"returnValue\":true,\"running\":";
    reply += running ? "true" : "false";
    if (!record.empty())
        reply += ",\"run\":" + record;
    return reply + "}";
}

// The last ended run's record, or "" before the first.
std::string lastRecord() {
    std::vector<std::string> history = runHistoryLoad();
    return history.empty() ? "" : history.back();
}

void drop(size_t index) {
    Subscriber gone = s_subscribers[index];
    s_subscribers.erase(s_subscribers.begin() + static_cast<long>(index));
    KSUnwatchCaller(gone.watch);
    KSMessageUnref(gone.message);
}

void callerGone(void *message) {
    for (size_t i = 0; i < s_subscribers.size(); ++i)
        if (s_subscribers[i].message == message) {
            drop(i);
            return;
        }
}

// Replies that can't be sent end that subscription; the others carry on.
void sendToAll(const std::string &reply) {
    for (size_t i = s_subscribers.size(); i-- > 0;) {
        BusError error;
        KSErrorInit(&error);
        bool sent = KSMessageReply(s_subscribers[i].handle, s_subscribers[i].message, reply.c_str(),
                                   &error);
        KSErrorFree(&error);
        if (!sent)
            drop(i);
    }
}

void dropAll() {
    while (!s_subscribers.empty())
        drop(s_subscribers.size() - 1);
}

} // namespace

bool runStatus(BusHandle *handle, BusMessage *message, void *) {
    static const char *const self = "runStatus";
    restartExitTimer(EXIT_TIMER_SHORT_MS);
    JsonTree root = prvKSMessageGetPayloadJSON(message);
    bool subscribe = false;
    if (!root || root->type != JSON_OBJECT) {
        vyxLog(LOG_ERR, "%s: KSMessageGetPayloadJSON error", self);
        sendNegativeResponse(handle, message, "JSON processing error");
        return true;
    }
    if (json_find_first_label(root.get(), "subscribe") &&
        !json_get_bool(root.get(), "subscribe", &subscribe)) {
        vyxLog(LOG_ERR, "%s: Parameter error: %s", self, logText(KSMessageGetPayload(message)));
        sendNegativeResponse(handle, message, "Invalid parameters");
        return true;
    }
    bool running = runRecordIsOpen();
    std::string record = running ? runRecordCurrentJson() : lastRecord();
    // A subscription taken between runs follows the next one.
    if (!replyToMessage(handle, message, replyFor(record, running).c_str(), self) || !subscribe)
        return true;
    KSMessageRef(message);
    s_subscribers.push_back({handle, message, 0});
    s_subscribers.back().watch = KSWatchCallerGone(message, callerGone, message);
    return true;
}

void runStatusChanged(const std::string &record, bool ended) {
    if (s_subscribers.empty())
        return;
    sendToAll(replyFor(record, !ended));
    if (ended)
        dropAll();
}

void runStatusRelease() {
    if (s_subscribers.empty())
        return;
    sendToAll(replyFor(lastRecord(), false));
    dropAll();
}
