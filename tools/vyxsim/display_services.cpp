// The display service's status subscription and the activity manager whose activities are
// triggered by it: an activity fires once, on the first display status its "where" clause lets
// through, by calling its callback method; its owner creates it again to hear of the next one.
#include <glib.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "records.h"
#include "services.h"
#include "sim.h"
#include "sim_json.h"

namespace {

const char *DISPLAY_STATUS = "velto://com.velto.display/control/status";

struct Activity {
    long id;
    std::string name;
    std::string triggerMethod;
    std::string where; // JSON text of the clause, empty when there is none
    std::string callbackMethod;
    std::string callbackParams; // JSON object text
};

std::vector<Activity> s_activities;
long s_nextActivityId = 1;

std::string statusReply() {
    const std::string &status = sim().device.display;
    return jsonJoinMembers("\"returnValue\":true",
                           std::string_view(status).substr(1, status.size() - 2));
}

// Compares like the platform's activity filters: texts for = and !=, numbers for the others.
bool clauseHolds(const JsonNode *clause, const JsonNode *status) {
    if (!clause || clause->type != JSON_OBJECT)
        return false;
    std::string prop = jsonText(jsonMember(clause, "prop"));
    std::string op = jsonText(jsonMember(clause, "op"));
    const JsonNode *want = jsonMember(clause, "val");
    const JsonNode *have = jsonMember(status, prop.c_str());
    if (!have || !want)
        return false;
    auto asText = [](const JsonNode *v) {
        if (v->type == JSON_TRUE)
            return std::string("true");
        if (v->type == JSON_FALSE)
            return std::string("false");
        if (v->type == JSON_NULL)
            return std::string("null");
        return jsonText(v);
    };
    if (op == "=" || op == "==")
        return asText(have) == asText(want);
    if (op == "!=")
        return asText(have) != asText(want);
    double a = g_ascii_strtod(asText(have).c_str(), nullptr);
    double b = g_ascii_strtod(asText(want).c_str(), nullptr);
    if (op == "<")
        return a < b;
    if (op == "<=")
        return a <= b;
    if (op == ">")
        return a > b;
    if (op == ">=")
        return a >= b;
    return false;
}

// A clause, or an array of clauses that must all hold.
bool whereHolds(const std::string &where, const JsonNode *status) {
    if (where.empty())
        return true;
    JsonTree tree = jsonParse(where.c_str());
    if (!tree)
        return false;
    if (tree->type != JSON_ARRAY)
        return clauseHolds(tree.get(), status);
    for (const JsonNode *clause = tree->child; clause; clause = clause->next)
        if (!clauseHolds(clause, status))
            return false;
    return true;
}

bool callbackReplyCB(BusHandle *, BusMessage *reply, void *context) {
    long id = static_cast<long>(reinterpret_cast<intptr_t>(context));
    const char *payload = KSMessageGetPayload(reply);
    recordEvent("activity", "\"action\":\"replied\",\"activityId\":" + std::to_string(id) +
                                ",\"reply\":" + jsonQuote(payload ? payload : ""));
    return true;
}

void fire(const Activity &activity, const std::string &trigger) {
    std::string params =
        activity.callbackParams.size() > 2
            ? std::string(activity.callbackParams.substr(1, activity.callbackParams.size() - 2))
            : std::string();
    std::string payload = jsonJoinMembers(
        params, "\"$activity\":{\"activityId\":" + std::to_string(activity.id) +
                    ",\"name\":" + jsonQuote(activity.name) + ",\"trigger\":" + trigger + "}");
    BusError error;
    KSErrorInit(&error);
    BusToken token = 0;
    bool sent =
        KSCall(outgoingHandle(), activity.callbackMethod.c_str(), payload.c_str(), callbackReplyCB,
               reinterpret_cast<void *>(static_cast<intptr_t>(activity.id)), &token, &error);
    recordEvent("activity", "\"action\":\"fired\",\"activityId\":" + std::to_string(activity.id) +
                                ",\"name\":" + jsonQuote(activity.name) +
                                ",\"method\":" + jsonQuote(activity.callbackMethod) +
                                ",\"payload\":" + jsonQuote(payload) +
                                ",\"sent\":" + (sent ? "true" : "false"));
    if (!sent)
        g_printerr("vyxsim: activity %s: call failed: %s\n", activity.name.c_str(),
                   error.message ? error.message : "unknown error");
    KSErrorFree(&error);
}

void acCreate(Call &call) {
    JsonTree tree = jsonParseLenient(call.payload);
    const JsonNode *activity = jsonMember(tree.get(), "activity");
    std::string name = jsonText(jsonMember(activity, "name"));
    const JsonNode *trigger = jsonMember(activity, "trigger");
    const JsonNode *callback = jsonMember(activity, "callback");
    std::string callbackMethod = jsonText(jsonMember(callback, "method"));
    if (name.empty() || !trigger || callbackMethod.empty()) {
        call.fail("Invalid activity: name, trigger and callback are required");
        return;
    }
    const JsonNode *where = jsonMember(trigger, "where");
    const JsonNode *params = jsonMember(callback, "params");
    Activity created{s_nextActivityId++,
                     name,
                     jsonText(jsonMember(trigger, "method")),
                     where ? json_write(where) : std::string(),
                     callbackMethod,
                     params && params->type == JSON_OBJECT ? json_write(params) : "{}"};
    bool replaced =
        std::erase_if(s_activities, [&](const Activity &a) { return a.name == name; }) > 0;
    s_activities.push_back(created);
    recordEvent("activity", "\"action\":\"created\",\"activityId\":" + std::to_string(created.id) +
                                ",\"name\":" + jsonQuote(name) +
                                ",\"replaced\":" + (replaced ? "true" : "false"));
    call.reply("{\"returnValue\":true,\"activityId\":" + std::to_string(created.id) + "}");
}

void acCancel(Call &call) {
    std::string name = jsonText(jsonMember(call.json.get(), "name"));
    std::string id = jsonText(jsonMember(call.json.get(), "activityId"));
    size_t removed = std::erase_if(s_activities, [&](const Activity &a) {
        return (!name.empty() && a.name == name) || (!id.empty() && std::to_string(a.id) == id);
    });
    if (!removed) {
        call.fail("No such activity");
        return;
    }
    call.ok();
}

void dsStatus(Call &call) {
    if (endSubscription(call, "display"))
        return;
    call.reply(statusReply());
    if (subscribeRequest(call) == SubscribeRequest::Subscribe)
        call.keep("display");
}

} // namespace

size_t displayInject(const std::string &statusObject) {
    sim().device.display = statusObject;
    std::string trigger = statusReply();
    recordEvent("display", "\"status\":" + statusObject);
    size_t told = publish("display", trigger);

    JsonTree status = jsonParse(trigger.c_str());
    std::vector<Activity> due;
    std::erase_if(s_activities, [&](const Activity &a) {
        bool fires = a.triggerMethod == DISPLAY_STATUS && whereHolds(a.where, status.get());
        if (fires)
            due.push_back(a);
        return fires;
    });
    for (const Activity &activity : due)
        fire(activity, trigger);
    return told + due.size();
}

std::string activitiesJson() {
    std::string out = "[";
    for (const Activity &a : s_activities) {
        if (out.size() > 1)
            out += ',';
        out += "{\"activityId\":" + std::to_string(a.id) + ",\"name\":" + jsonQuote(a.name) +
               ",\"trigger\":" + jsonQuote(a.triggerMethod) +
               ",\"where\":" + (a.where.empty() ? "null" : a.where) +
               ",\"callback\":" + jsonQuote(a.callbackMethod) + "}";
    }
    return out + "]";
}

void defineDisplayServices() {
    serviceDefine("com.velto.activitymanager", "/", {{"create", acCreate}, {"cancel", acCancel}});
    serviceDefine("com.velto.display", "/control", {{"status", dsStatus}});
}
