// The device's own services: application manager, system service (preferences), account
// services, device profile, system properties, connection manager and download manager.
#include <glib.h>

#include <algorithm>
#include <cstring>

#include "records.h"
#include "services.h"
#include "sim.h"
#include "sim_json.h"

SimState &sim() {
    static SimState state;
    return state;
}

namespace {

const char *CORE_APP = "com.velto.app.vyxcore";

// The platform launches applications by id; the package of an application "x.app" is "x".
const Package *installedApp(const std::string &appId) {
    if (const Package *package = packageFind(appId))
        return package;
    if (g_str_has_suffix(appId.c_str(), ".app"))
        return packageFind(appId.substr(0, appId.size() - 4));
    return nullptr;
}

void amLaunch(Call &call) {
    JsonTree tree = jsonParseLenient(call.payload);
    std::string id = jsonText(jsonMember(tree.get(), "id"));
    if (id.empty()) {
        call.fail("Missing id");
        return;
    }
    const JsonNode *params = jsonMember(tree.get(), "params");
    std::string paramsText = params ? json_write(params) : "{}";
    std::string action = jsonText(jsonMember(params, "action"));

    // Pop-ups are what a person watches; they count whether or not the core application can
    // show them.
    if (id == CORE_APP && action == "popupalert")
        recordEvent("popup",
                    "\"message\":" + jsonQuote(jsonText(jsonMember(params, "message"))) +
                        ",\"name\":" + jsonQuote(jsonText(jsonMember(params, "name"))) +
                        ",\"percent\":" + jsonQuote(jsonText(jsonMember(params, "percent"))));

    std::string members = "\"id\":" + jsonQuote(id) + ",\"action\":" + jsonQuote(action) +
                          ",\"params\":" + paramsText;
    if (!installedApp(id)) {
        recordEvent("launch", members + ",\"ok\":false");
        call.fail("Application not found: " + id);
        return;
    }
    auto &running = sim().device.running;
    auto app = std::find_if(running.begin(), running.end(),
                            [&](const RunningApp &r) { return r.id == id; });
    int processId;
    if (app != running.end()) {
        processId = app->processId;
    } else {
        processId = sim().nextProcessId++;
        running.push_back(RunningApp{id, processId});
    }
    // An application told to exit does so right after it got the message.
    if (action == "exit")
        std::erase_if(running, [&](const RunningApp &r) { return r.id == id; });
    std::string pid = std::to_string(processId);
    recordEvent("launch", members + ",\"ok\":true,\"processId\":" + jsonQuote(pid));
    call.reply("{\"returnValue\":true,\"processId\":" + jsonQuote(pid) + "}");
}

void amRunning(Call &call) {
    std::string list;
    for (const RunningApp &app : sim().device.running)
        appendItem(list, "{\"id\":" + jsonQuote(app.id) + ",\"processid\":\"" +
                             std::to_string(app.processId) + "\"}");
    call.reply("{\"returnValue\":true,\"running\":[" + list + "]}");
}

void amClose(Call &call) {
    JsonTree tree = jsonParseLenient(call.payload);
    std::string text = jsonText(jsonMember(tree.get(), "processId"));
    char *end = nullptr;
    long processId = text.empty() ? -1 : strtol(text.c_str(), &end, 10);
    auto &running = sim().device.running;
    auto app = std::find_if(running.begin(), running.end(),
                            [&](const RunningApp &r) { return r.processId == processId; });
    if (text.empty() || *end || app == running.end()) {
        call.fail("No process " + text);
        return;
    }
    recordEvent("close", "\"id\":" + jsonQuote(app->id) + ",\"processId\":" + jsonQuote(text));
    running.erase(app);
    call.ok();
}

void amListPackages(Call &call) {
    call.reply("{\"returnValue\":true,\"apps\":" + packagesJson() + "}");
}

void ssGetPreferences(Call &call) {
    const JsonNode *keys = jsonMember(call.json.get(), "keys");
    if (!keys || keys->type != JSON_ARRAY) {
        call.fail("Missing keys");
        return;
    }
    std::string members;
    for (const JsonNode *key = keys->child; key; key = key->next) {
        std::string name = jsonText(key);
        for (const auto &[prefKey, value] : sim().device.preferences)
            if (prefKey == name)
                appendItem(members, jsonQuote(prefKey) + ":" + value);
    }
    call.reply(jsonJoinMembers("\"returnValue\":true", members));
}

void ssSetPreferences(Call &call) {
    const JsonNode *root = call.json.get();
    if (!root || root->type != JSON_OBJECT || !root->child) {
        call.fail("Invalid preferences");
        return;
    }
    auto &prefs = sim().device.preferences;
    for (const JsonNode *label = root->child; label; label = label->next) {
        std::string key = jsonUnescape(label->text);
        std::string value = json_write(label->child);
        auto entry =
            std::find_if(prefs.begin(), prefs.end(), [&](const auto &p) { return p.first == key; });
        if (entry != prefs.end())
            entry->second = value;
        else
            prefs.emplace_back(key, value);
        recordEvent("preference", "\"key\":" + jsonQuote(key) + ",\"value\":" + value);
    }
    call.ok();
}

void asGetAccountToken(Call &call) {
    const auto &account = sim().device.account;
    if (!account) {
        call.fail("No account on this device");
        return;
    }
    call.reply("{\"returnValue\":true,\"token\":" + jsonQuote(account->token) +
               ",\"accountAlias\":" + jsonQuote(account->alias) + ",\"accountState\":" +
               jsonQuote(account->state) + ",\"uniqueId\":" + jsonQuote(account->uniqueId) + "}");
}

void asGetServerUrl(Call &call) {
    call.reply("{\"returnValue\":true,\"serverUrl\":" + jsonQuote(sim().storeUrl) + "}");
}

void dpGetDeviceId(Call &call) {
    if (sim().device.deviceId.empty()) {
        call.fail("Device id not available");
        return;
    }
    call.reply("{\"returnValue\":true,\"deviceId\":" + jsonQuote(sim().device.deviceId) + "}");
}

void spGetSomeSysPropertiesObj(Call &call) {
    const JsonNode *root = call.json.get();
    if (!root || root->type != JSON_ARRAY) {
        call.fail("Expected an array of keys");
        return;
    }
    std::string values;
    for (const JsonNode *item = root->child; item; item = item->next) {
        std::string key = jsonText(jsonMember(item, "key"));
        const std::optional<std::string> *value = nullptr;
        if (key == "com.velto.properties.DMCARRIER")
            value = &sim().device.carrier;
        else if (key == "com.velto.properties.machineName")
            value = &sim().device.machineName;
        if (value && value->has_value())
            appendItem(values, jsonJoinMembers(jsonQuote(key) + ":" + jsonQuote(**value), ""));
    }
    call.reply("{\"returnValue\":true,\"values\":[" + values + "]}");
}

std::string connectivityReply() {
    const std::string &status = sim().device.connectivity;
    return jsonJoinMembers("\"returnValue\":true",
                           std::string_view(status).substr(1, status.size() - 2));
}

void cmGetStatus(Call &call) {
    if (endSubscription(call, "connectionmanager"))
        return;
    call.reply(connectivityReply());
    if (subscribeRequest(call) == SubscribeRequest::Subscribe)
        call.keep("connectionmanager");
}

void dmAllow1x(Call &call) {
    const JsonNode *value = jsonMember(call.json.get(), "value");
    if (!value || (value->type != JSON_TRUE && value->type != JSON_FALSE)) {
        call.fail("Missing value");
        return;
    }
    sim().allow1x = value->type == JSON_TRUE;
    recordEvent("allow1x", std::string("\"value\":") + (sim().allow1x ? "true" : "false"));
    call.ok();
}

} // namespace

const Package *packageFind(const std::string &id) {
    for (const Package &package : sim().device.packages)
        if (package.id == id)
            return &package;
    return nullptr;
}

void packageInstalled(const Package &package) {
    for (Package &known : sim().device.packages)
        if (known.id == package.id) {
            known = package;
            return;
        }
    sim().device.packages.push_back(package);
}

bool packageRemove(const std::string &id) {
    return std::erase_if(sim().device.packages, [&](const Package &p) { return p.id == id; }) > 0;
}

std::string packagesJson() {
    std::string out = "[";
    for (const Package &package : sim().device.packages) {
        if (out.size() > 1)
            out += ',';
        out += "{\"id\":" + jsonQuote(package.id) + ",\"version\":" + jsonQuote(package.version) +
               ",\"title\":" + jsonQuote(package.title) +
               ",\"userInstalled\":" + (package.userInstalled ? "true" : "false") + ",\"icon\":\"" +
               jsonEscapeSlashes(package.icon) + "\"}";
    }
    return out + "]";
}

size_t connectivityInject(const std::string &statusObject) {
    sim().device.connectivity = statusObject;
    recordEvent("connectivity", "\"status\":" + statusObject);
    return publish("connectionmanager", connectivityReply());
}

void defineDeviceServices() {
    serviceDefine("com.velto.applicationManager", "/",
                  {{"launch", amLaunch},
                   {"running", amRunning},
                   {"close", amClose},
                   {"listPackages", amListPackages}});
    serviceDefine("com.velto.systemservice", "/",
                  {{"getPreferences", ssGetPreferences}, {"setPreferences", ssSetPreferences}});
    serviceDefine("com.velto.accountservices", "/",
                  {{"getAccountToken", asGetAccountToken}, {"getServerUrl", asGetServerUrl}});
    serviceDefine("com.velto.deviceprofile", "/", {{"getDeviceId", dpGetDeviceId}});
    serviceDefine("com.velto.preferences", "/systemProperties",
                  {{"getSomeSysPropertiesObj", spGetSomeSysPropertiesObj}});
    serviceDefine("com.velto.connectionmanager", "/", {{"getstatus", cmGetStatus}});
    serviceDefine("com.velto.downloadmanager", "/", {{"allow1x", dmAllow1x}});
}
