// "com.velto.sim": how a person or a test drives the simulator and reads what it recorded.
#include <glib.h>

#include <algorithm>
#include <cstring>

#include "records.h"
#include "services.h"
#include "sim.h"
#include "sim_json.h"

namespace {

GMainLoop *s_loop = nullptr;

const JsonNode *objectPayload(Call &call) {
    const JsonNode *root = call.json.get();
    if (!root || root->type != JSON_OBJECT) {
        call.fail("Expected a JSON object");
        return nullptr;
    }
    return root;
}

void ctDisplayEvent(Call &call) {
    const JsonNode *root = objectPayload(call);
    if (!root)
        return;
    const JsonNode *event = jsonMember(root, "event");
    if (!event || event->type != JSON_STRING) {
        call.fail("Missing event");
        return;
    }
    size_t told = displayInject(json_write(root));
    call.reply("{\"returnValue\":true,\"notified\":" + std::to_string(told) + "}");
}

void ctSetConnectivity(Call &call) {
    const JsonNode *root = objectPayload(call);
    if (!root)
        return;
    size_t told = connectivityInject(json_write(root));
    call.reply("{\"returnValue\":true,\"notified\":" + std::to_string(told) + "}");
}

void ctSetFault(Call &call) {
    if (!objectPayload(call))
        return;
    std::string error;
    if (!faultsChange(call.payload, error)) {
        call.fail(error);
        return;
    }
    call.ok();
}

void ctSetInstallBehaviour(Call &call) {
    std::string id, error;
    InstallBehaviour behaviour;
    if (!parseInstallBehaviour(call.payload, id, behaviour, error)) {
        call.fail(error);
        return;
    }
    sim().device.installs[id] = behaviour;
    call.ok();
}

void reply(Call &call, const char *kind) {
    const JsonNode *since = jsonMember(call.json.get(), "since");
    long after = since ? strtol(jsonText(since).c_str(), nullptr, 10) : 0;
    call.reply(recordsReply(kind, after));
}

void ctRecords(Call &call) {
    std::string kind = jsonText(jsonMember(call.json.get(), "kind"));
    reply(call, kind.c_str());
}
void ctCalls(Call &call) {
    reply(call, "call");
}
void ctLaunches(Call &call) {
    reply(call, "launch");
}
void ctPopups(Call &call) {
    reply(call, "popup");
}

void ctPackages(Call &call) {
    call.reply("{\"returnValue\":true,\"apps\":" + packagesJson() + "}");
}

void ctPreferences(Call &call) {
    std::string members;
    for (const auto &[key, value] : sim().device.preferences)
        appendItem(members, jsonQuote(key) + ":" + value);
    call.reply("{\"returnValue\":true,\"preferences\":{" + members + "}}");
}

void ctDevice(Call &call) {
    std::string running;
    for (const RunningApp &app : sim().device.running)
        appendItem(running, "{\"id\":" + jsonQuote(app.id) + ",\"processid\":\"" +
                                std::to_string(app.processId) + "\"}");
    std::string services;
    for (const std::string &name : serviceNames())
        appendItem(services, "{\"name\":" + jsonQuote(name) + ",\"running\":" +
                                 (serviceIsRunning(name) ? "true" : "false") + "}");
    const char *allow1x = sim().allow1x < 0 ? "null" : sim().allow1x ? "true" : "false";
    call.reply("{\"returnValue\":true,\"scenario\":\"" + jsonEscape(sim().device.name) +
               "\",\"storeUrl\":\"" + jsonEscape(sim().storeUrl) + "\",\"storeFault\":\"" +
               storeFaultName(sim().device.faults.store) + "\",\"running\":[" + running +
               "],\"installs\":" + installsJson() + ",\"activities\":" + activitiesJson() +
               ",\"connectivity\":" + sim().device.connectivity +
               ",\"display\":" + sim().device.display + ",\"allow1x\":" + allow1x +
               ",\"services\":[" + services + "]}");
}

// A watcher hears every record as it happens; "kinds" narrows it down.
void ctWatch(Call &call) {
    if (endSubscription(call, "sim/watch"))
        return;
    if (subscribeRequest(call) != SubscribeRequest::Subscribe) {
        call.fail("watch needs \"subscribe\":true");
        return;
    }
    std::string filter;
    if (const JsonNode *kinds = jsonMember(call.json.get(), "kinds");
        kinds && kinds->type == JSON_ARRAY)
        for (const JsonNode *kind = kinds->child; kind; kind = kind->next)
            appendItem(filter, jsonText(kind), ';');
    call.reply("{\"returnValue\":true,\"subscribed\":true}");
    call.keep("sim/watch", filter);
}

void ctQuit(Call &call) {
    call.ok();
    if (s_loop)
        g_main_loop_quit(s_loop);
}

} // namespace

bool faultsChange(const char *faultsObject, std::string &error) {
    Faults faults = sim().device.faults;
    if (!parseFaults(faultsObject, faults, error))
        return false;
    for (const std::string &name : faults.notRunning)
        if (!serviceKnown(name)) {
            error = name + " is not a simulated service";
            return false;
        }
    sim().device.faults = faults;
    for (const std::string &name : serviceNames()) {
        if (name == "com.velto.sim")
            continue; // the control interface stays reachable
        bool down = std::find(faults.notRunning.begin(), faults.notRunning.end(), name) !=
                    faults.notRunning.end();
        if (!serviceSetRunning(name, !down, error))
            return false;
    }
    if (!storeApplyFault(error))
        return false;
    recordEvent("fault", "\"store\":\"" + std::string(storeFaultName(faults.store)) + "\"");
    return true;
}

void controlSetLoop(GMainLoop *loop) {
    s_loop = loop;
}

void defineControlService() {
    serviceDefine("com.velto.sim", "/",
                  {{"displayEvent", ctDisplayEvent},
                   {"setConnectivity", ctSetConnectivity},
                   {"setFault", ctSetFault},
                   {"setInstallBehaviour", ctSetInstallBehaviour},
                   {"records", ctRecords},
                   {"calls", ctCalls},
                   {"launches", ctLaunches},
                   {"popups", ctPopups},
                   {"packages", ctPackages},
                   {"preferences", ctPreferences},
                   {"device", ctDevice},
                   {"watch", ctWatch},
                   {"quit", ctQuit}});
}
