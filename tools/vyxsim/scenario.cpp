#include "scenario.h"

#include <glib.h>

#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <set>

#include "sim_json.h"

namespace {

// Thrown by the checks below with "where: what"; caught once in parseScenario.
struct ScenarioError {
    std::string message;
};

[[noreturn]] void fail(const std::string &where, const std::string &what) {
    throw ScenarioError{where + ": " + what};
}

const char *typeName(const JsonNode *value) {
    if (!value)
        return "nothing";
    switch (value->type) {
    case JSON_STRING:
        return "a string";
    case JSON_NUMBER:
        return "a number";
    case JSON_OBJECT:
        return "an object";
    case JSON_ARRAY:
        return "an array";
    case JSON_TRUE:
    case JSON_FALSE:
        return "a boolean";
    case JSON_NULL:
        return "null";
    }
    return "something unknown";
}

std::string at(const std::string &path, const char *key) {
    return path.empty() ? key : path + "." + key;
}
std::string at(const std::string &path, size_t index) {
    return path + "[" + std::to_string(index) + "]";
}

// Every member known, none twice: a typo in a scenario must not silently fall back to a default.
void onlyMembers(const JsonNode *object, const std::string &where,
                 std::initializer_list<const char *> known) {
    std::set<std::string> seen;
    for (const JsonNode *label = object->child; label; label = label->next) {
        std::string key = label->text ? label->text : "";
        if (!seen.insert(key).second)
            fail(at(where, key.c_str()), "given twice");
        bool ok = false;
        for (const char *name : known)
            ok = ok || key == name;
        if (!ok) {
            std::string list;
            for (const char *name : known) {
                list += list.empty() ? "" : ", ";
                list += name;
            }
            fail(at(where, key.c_str()), "unknown member (known: " + list + ")");
        }
    }
}

const JsonNode *objectAt(const JsonNode *value, const std::string &where) {
    if (!value || value->type != JSON_OBJECT)
        fail(where, std::string("expected an object, found ") + typeName(value));
    return value;
}

const JsonNode *arrayAt(const JsonNode *value, const std::string &where) {
    if (!value || value->type != JSON_ARRAY)
        fail(where, std::string("expected an array, found ") + typeName(value));
    return value;
}

std::string textAt(const JsonNode *value, const std::string &where) {
    if (!value || value->type != JSON_STRING)
        fail(where, std::string("expected a string, found ") + typeName(value));
    return jsonUnescape(value->text ? value->text : "");
}

void checkId(const std::string &id, const std::string &where) {
    if (id.empty())
        fail(where, "must not be empty");
    for (unsigned char c : id)
        if (c <= ' ' || c == '"' || c == '\'' || c == '\\' || c == ';' || c == '/')
            fail(where, "\"" + id + "\" is not a usable package id");
}

std::string idAt(const JsonNode *value, const std::string &where) {
    std::string id = textAt(value, where);
    checkId(id, where);
    return id;
}

bool boolAt(const JsonNode *value, const std::string &where) {
    if (!value || (value->type != JSON_TRUE && value->type != JSON_FALSE))
        fail(where, std::string("expected true or false, found ") + typeName(value));
    return value->type == JSON_TRUE;
}

long long integerAt(const JsonNode *value, const std::string &where, long long min, long long max) {
    if (!value || value->type != JSON_NUMBER || !value->text)
        fail(where, std::string("expected a whole number, found ") + typeName(value));
    char *end = nullptr;
    errno = 0;
    long long number = g_ascii_strtoll(value->text, &end, 10);
    if (errno || !end || *end)
        fail(where, std::string("expected a whole number, found ") + value->text);
    if (number < min || number > max)
        fail(where, std::to_string(number) + " is out of range " + std::to_string(min) + ".." +
                        std::to_string(max));
    return number;
}

std::optional<std::string> optionalTextAt(const JsonNode *value, const std::string &where) {
    if (value && value->type == JSON_NULL)
        return std::nullopt;
    return textAt(value, where);
}

void readPackages(const JsonNode *array, const std::string &where, Scenario &scenario) {
    size_t index = 0;
    std::set<std::string> ids;
    scenario.packages.clear();
    for (const JsonNode *element = arrayAt(array, where)->child; element;
         element = element->next, ++index) {
        std::string here = at(where, index);
        objectAt(element, here);
        onlyMembers(element, here, {"id", "version", "title", "userInstalled", "icon"});
        Package package;
        package.id = idAt(jsonMember(element, "id"), at(here, "id"));
        if (!ids.insert(package.id).second)
            fail(here, "package " + package.id + " is listed twice");
        const JsonNode *version = jsonMember(element, "version");
        package.version = version ? textAt(version, at(here, "version")) : "1.0.0";
        const JsonNode *title = jsonMember(element, "title");
        package.title = title ? textAt(title, at(here, "title")) : package.id;
        const JsonNode *user = jsonMember(element, "userInstalled");
        package.userInstalled = user ? boolAt(user, at(here, "userInstalled")) : false;
        const JsonNode *icon = jsonMember(element, "icon");
        package.icon = icon ? textAt(icon, at(here, "icon"))
                       : package.userInstalled
                           ? userIconPath(package.id)
                           : "/usr/velto/applications/" + package.id + "/icon.png";
        scenario.packages.push_back(package);
    }
}

void readRunning(const JsonNode *array, const std::string &where, Scenario &scenario) {
    size_t index = 0;
    int nextId = 700;
    scenario.running.clear();
    for (const JsonNode *element = arrayAt(array, where)->child; element;
         element = element->next, ++index) {
        std::string here = at(where, index);
        RunningApp app;
        if (element->type == JSON_STRING) {
            app.id = idAt(element, here);
            app.processId = nextId++;
        } else {
            objectAt(element, here);
            onlyMembers(element, here, {"id", "processId"});
            app.id = idAt(jsonMember(element, "id"), at(here, "id"));
            const JsonNode *pid = jsonMember(element, "processId");
            app.processId =
                pid ? static_cast<int>(integerAt(pid, at(here, "processId"), 1, 999999)) : nextId++;
        }
        for (const RunningApp &other : scenario.running)
            if (other.processId == app.processId)
                fail(here, "process id " + std::to_string(app.processId) + " is used twice");
        scenario.running.push_back(app);
    }
}

std::string localeText(const JsonNode *value, const std::string &where) {
    if (value && value->type == JSON_STRING) {
        std::string text = textAt(value, where);
        size_t split = text.find('_');
        if (split == std::string::npos || split == 0 || split + 1 == text.size())
            fail(where, "expected language_country such as \"en_us\", found \"" + text + "\"");
        return "{\"languageCode\":\"" + jsonEscape(text.substr(0, split)) +
               "\",\"countryCode\":\"" + jsonEscape(text.substr(split + 1)) + "\"}";
    }
    objectAt(value, where);
    onlyMembers(value, where, {"languageCode", "countryCode"});
    textAt(jsonMember(value, "languageCode"), at(where, "languageCode"));
    textAt(jsonMember(value, "countryCode"), at(where, "countryCode"));
    return json_write(value);
}

void setPreference(Scenario &scenario, const std::string &key, const std::string &value) {
    for (auto &entry : scenario.preferences)
        if (entry.first == key) {
            entry.second = value;
            return;
        }
    scenario.preferences.emplace_back(key, value);
}

void readDevice(const JsonNode *device, const std::string &where, Scenario &scenario) {
    objectAt(device, where);
    onlyMembers(device, where,
                {"preferences", "locale", "installed", "running", "account", "carrier",
                 "machineName", "deviceId", "connectivity", "display"});
    if (const JsonNode *prefs = jsonMember(device, "preferences")) {
        objectAt(prefs, at(where, "preferences"));
        onlyMembers(prefs, at(where, "preferences"),
                    {"vyxStageRunning", "vyxStageDetails", "locale"});
        for (const JsonNode *label = prefs->child; label; label = label->next)
            setPreference(scenario, jsonUnescape(label->text), json_write(label->child));
    }
    if (const JsonNode *locale = jsonMember(device, "locale"))
        setPreference(scenario, "locale", localeText(locale, at(where, "locale")));
    if (const JsonNode *installed = jsonMember(device, "installed"))
        readPackages(installed, at(where, "installed"), scenario);
    if (const JsonNode *running = jsonMember(device, "running"))
        readRunning(running, at(where, "running"), scenario);
    if (const JsonNode *account = jsonMember(device, "account");
        account && account->type != JSON_NULL) {
        std::string here = at(where, "account");
        objectAt(account, here);
        onlyMembers(account, here, {"token", "alias", "state", "uniqueId"});
        Account value;
        value.token = textAt(jsonMember(account, "token"), at(here, "token"));
        value.alias = textAt(jsonMember(account, "alias"), at(here, "alias"));
        if (const JsonNode *state = jsonMember(account, "state"))
            value.state = textAt(state, at(here, "state"));
        if (const JsonNode *unique = jsonMember(account, "uniqueId"))
            value.uniqueId = textAt(unique, at(here, "uniqueId"));
        scenario.account = value;
    } else if (account) {
        scenario.account.reset();
    }
    if (const JsonNode *carrier = jsonMember(device, "carrier"))
        scenario.carrier = optionalTextAt(carrier, at(where, "carrier"));
    if (const JsonNode *machine = jsonMember(device, "machineName"))
        scenario.machineName = optionalTextAt(machine, at(where, "machineName"));
    if (const JsonNode *deviceId = jsonMember(device, "deviceId"))
        scenario.deviceId = textAt(deviceId, at(where, "deviceId"));
    if (const JsonNode *connectivity = jsonMember(device, "connectivity"))
        scenario.connectivity = json_write(objectAt(connectivity, at(where, "connectivity")));
    if (const JsonNode *display = jsonMember(device, "display")) {
        std::string here = at(where, "display");
        objectAt(display, here);
        textAt(jsonMember(display, "event"), at(here, "event"));
        scenario.display = json_write(display);
    }
}

void readStore(const JsonNode *store, const std::string &where, Scenario &scenario) {
    objectAt(store, where);
    onlyMembers(store, where, {"port", "path", "catalogue", "profile"});
    if (const JsonNode *port = jsonMember(store, "port"))
        scenario.storePort = static_cast<int>(integerAt(port, at(where, "port"), 0, 65535));
    if (const JsonNode *path = jsonMember(store, "path")) {
        std::string text = textAt(path, at(where, "path"));
        if (text.empty() || text.front() != '/' || text.back() != '/')
            fail(at(where, "path"), "must begin and end with \"/\"");
        scenario.storePath = text;
    }
    if (const JsonNode *catalogue = jsonMember(store, "catalogue")) {
        std::string list = at(where, "catalogue");
        size_t index = 0;
        std::set<std::string> ids;
        scenario.catalogue.clear();
        for (const JsonNode *item = arrayAt(catalogue, list)->child; item;
             item = item->next, ++index) {
            std::string here = at(list, index);
            objectAt(item, here);
            onlyMembers(item, here,
                        {"id", "version", "title", "size", "catalogId", "vendorId", "homeURL",
                         "location", "icon"});
            CatalogueEntry entry;
            entry.id = idAt(jsonMember(item, "id"), at(here, "id"));
            if (!ids.insert(entry.id).second)
                fail(here, "package " + entry.id + " is in the catalogue twice");
            entry.version = textAt(jsonMember(item, "version"), at(here, "version"));
            const JsonNode *title = jsonMember(item, "title");
            entry.title = title ? textAt(title, at(here, "title")) : entry.id;
            const JsonNode *size = jsonMember(item, "size");
            entry.size = size ? integerAt(size, at(here, "size"), 1, 4000000000LL) : 1048576;
            const JsonNode *catalogId = jsonMember(item, "catalogId");
            entry.catalogId = catalogId ? integerAt(catalogId, at(here, "catalogId"), 0, 2147483647)
                                        : 1000 + static_cast<long long>(index);
            const JsonNode *vendor = jsonMember(item, "vendorId");
            entry.vendorId = vendor ? integerAt(vendor, at(here, "vendorId"), 0, 2147483647) : 7;
            if (const JsonNode *home = jsonMember(item, "homeURL"))
                entry.homeUrl = textAt(home, at(here, "homeURL"));
            if (const JsonNode *location = jsonMember(item, "location"))
                entry.location = textAt(location, at(here, "location"));
            if (const JsonNode *icon = jsonMember(item, "icon"))
                entry.icon = textAt(icon, at(here, "icon"));
            scenario.catalogue.push_back(entry);
        }
    }
    if (const JsonNode *profile = jsonMember(store, "profile")) {
        std::string list = at(where, "profile");
        size_t index = 0;
        scenario.profile.clear();
        for (const JsonNode *item = arrayAt(profile, list)->child; item; item = item->next, ++index)
            scenario.profile.push_back(idAt(item, at(list, index)));
    }
}

void readBehaviour(const JsonNode *value, const std::string &where, InstallBehaviour &behaviour) {
    objectAt(value, where);
    onlyMembers(value, where, {"outcome", "durationMs", "failAt", "userInstalled"});
    if (const JsonNode *outcome = jsonMember(value, "outcome")) {
        std::string word = textAt(outcome, at(where, "outcome"));
        if (word == "installed")
            behaviour.outcome = InstallOutcome::Installed;
        else if (word == "failed")
            behaviour.outcome = InstallOutcome::Failed;
        else if (word == "canceled")
            behaviour.outcome = InstallOutcome::Canceled;
        else if (word == "refused")
            behaviour.outcome = InstallOutcome::Refused;
        else if (word == "silent")
            behaviour.outcome = InstallOutcome::Silent;
        else
            fail(at(where, "outcome"),
                 "\"" + word + "\" is not one of installed, failed, canceled, refused, silent");
    }
    if (const JsonNode *duration = jsonMember(value, "durationMs"))
        behaviour.durationMs =
            static_cast<unsigned>(integerAt(duration, at(where, "durationMs"), 1, 600000));
    if (const JsonNode *failAt = jsonMember(value, "failAt"))
        behaviour.failAt = static_cast<unsigned>(integerAt(failAt, at(where, "failAt"), 0, 100));
    if (const JsonNode *user = jsonMember(value, "userInstalled"))
        behaviour.userInstalled = boolAt(user, at(where, "userInstalled"));
}

void readInstallService(const JsonNode *service, const std::string &where, Scenario &scenario) {
    objectAt(service, where);
    onlyMembers(service, where, {"durationMs", "statusForm", "packages"});
    // A number, or {"base","perMiB"} for installs that take longer the larger the package is.
    // Either form replaces the other, so a scenario extending a device of slow installs makes
    // them quick again with a plain number.
    if (const JsonNode *duration = jsonMember(service, "durationMs")) {
        std::string here = at(where, "durationMs");
        scenario.installMsPerMiB = 0;
        if (duration->type == JSON_OBJECT) {
            onlyMembers(duration, here, {"base", "perMiB"});
            const JsonNode *base = jsonMember(duration, "base");
            const JsonNode *perMiB = jsonMember(duration, "perMiB");
            scenario.installDurationMs =
                base ? static_cast<unsigned>(integerAt(base, at(here, "base"), 0, 600000)) : 0;
            if (perMiB)
                scenario.installMsPerMiB =
                    static_cast<unsigned>(integerAt(perMiB, at(here, "perMiB"), 0, 600000));
        } else {
            scenario.installDurationMs =
                static_cast<unsigned>(integerAt(duration, here, 1, 600000));
        }
    }
    if (const JsonNode *form = jsonMember(service, "statusForm")) {
        std::string word = textAt(form, at(where, "statusForm"));
        if (word != "list" && word != "single")
            fail(at(where, "statusForm"), "\"" + word + "\" is not one of list, single");
        scenario.statusSingleForm = word == "single";
    }
    if (const JsonNode *packages = jsonMember(service, "packages"))
        objectAt(packages, at(where, "packages"));
}

void readInstallPackages(const JsonNode *service, const std::string &where, Scenario &scenario) {
    const JsonNode *packages = jsonMember(service, "packages");
    if (!packages)
        return;
    std::string here = at(where, "packages");
    std::set<std::string> seen;
    for (const JsonNode *label = packages->child; label; label = label->next) {
        std::string id = jsonUnescape(label->text ? label->text : "");
        checkId(id, here);
        if (!seen.insert(id).second)
            fail(at(here, id.c_str()), "given twice");
        InstallBehaviour behaviour;
        readBehaviour(label->child, at(here, id.c_str()), behaviour);
        scenario.installs[id] = behaviour;
    }
}

void readFaults(const JsonNode *faults, const std::string &where, Faults &out) {
    objectAt(faults, where);
    onlyMembers(faults, where,
                {"notRunning", "running", "store", "storeDelayMs", "storeMethods", "statusSilent"});
    if (const JsonNode *list = jsonMember(faults, "notRunning")) {
        size_t index = 0;
        for (const JsonNode *item = arrayAt(list, at(where, "notRunning"))->child; item;
             item = item->next, ++index) {
            std::string name = textAt(item, at(at(where, "notRunning"), index));
            bool known = false;
            for (const std::string &other : out.notRunning)
                known = known || other == name;
            if (!known)
                out.notRunning.push_back(name);
        }
    }
    if (const JsonNode *list = jsonMember(faults, "running")) {
        size_t index = 0;
        for (const JsonNode *item = arrayAt(list, at(where, "running"))->child; item;
             item = item->next, ++index) {
            std::string name = textAt(item, at(at(where, "running"), index));
            std::erase(out.notRunning, name);
        }
    }
    if (const JsonNode *store = jsonMember(faults, "store")) {
        std::string word = textAt(store, at(where, "store"));
        if (!parseStoreFault(word, out.store))
            fail(at(where, "store"),
                 "\"" + word +
                     "\" is not one of none, down, slow, http500, malformed, garbage, truncated, "
                     "chunked");
    }
    if (const JsonNode *delay = jsonMember(faults, "storeDelayMs"))
        out.storeDelayMs =
            static_cast<unsigned>(integerAt(delay, at(where, "storeDelayMs"), 0, 600000));
    if (const JsonNode *silent = jsonMember(faults, "statusSilent"))
        out.statusSilent = boolAt(silent, at(where, "statusSilent"));
    if (const JsonNode *methods = jsonMember(faults, "storeMethods")) {
        out.storeMethods.clear();
        size_t index = 0;
        for (const JsonNode *item = arrayAt(methods, at(where, "storeMethods"))->child; item;
             item = item->next, ++index) {
            std::string method = textAt(item, at(at(where, "storeMethods"), index));
            if (method != "appDetail_ext2" && method != "getUserInstalledApps_ext2")
                fail(at(at(where, "storeMethods"), index),
                     "\"" + method + "\" is not one of appDetail_ext2, getUserInstalledApps_ext2");
            out.storeMethods.push_back(method);
        }
    }
}

void readFiles(const JsonNode *files, const std::string &where, Scenario &scenario) {
    objectAt(files, where);
    scenario.files.clear();
    for (const JsonNode *label = files->child; label; label = label->next) {
        std::string path = jsonUnescape(label->text ? label->text : "");
        std::string here = at(where, path.c_str());
        if (path.empty() || path.front() != '/' || path.back() == '/')
            fail(here, "expected an absolute file path");
        gchar **parts = g_strsplit(path.c_str(), "/", -1);
        bool climbs = false;
        for (gchar **part = parts; *part; ++part)
            climbs = climbs || strcmp(*part, "..") == 0 || strcmp(*part, ".") == 0;
        g_strfreev(parts);
        if (climbs)
            fail(here, "\".\" and \"..\" are not allowed in a path");
        scenario.files.emplace_back(path, textAt(label->child, here));
    }
}

} // namespace

std::string userIconPath(const std::string &id) {
    return "/media/cryptofs/apps/usr/velto/applications/" + id + "/icon.png";
}

bool parseStoreFault(const std::string &word, StoreFault &fault) {
    static const std::pair<const char *, StoreFault> words[] = {
        {"none", StoreFault::None},           {"down", StoreFault::Down},
        {"slow", StoreFault::Slow},           {"http500", StoreFault::Http500},
        {"malformed", StoreFault::Malformed}, {"garbage", StoreFault::Garbage},
        {"truncated", StoreFault::Truncated}, {"chunked", StoreFault::Chunked},
    };
    for (const auto &[name, value] : words)
        if (word == name) {
            fault = value;
            return true;
        }
    return false;
}

const char *storeFaultName(StoreFault fault) {
    switch (fault) {
    case StoreFault::None:
        return "none";
    case StoreFault::Down:
        return "down";
    case StoreFault::Slow:
        return "slow";
    case StoreFault::Http500:
        return "http500";
    case StoreFault::Malformed:
        return "malformed";
    case StoreFault::Garbage:
        return "garbage";
    case StoreFault::Truncated:
        return "truncated";
    case StoreFault::Chunked:
        return "chunked";
    }
    return "none";
}

const char *installOutcomeName(InstallOutcome outcome) {
    switch (outcome) {
    case InstallOutcome::Installed:
        return "installed";
    case InstallOutcome::Failed:
        return "failed";
    case InstallOutcome::Canceled:
        return "canceled";
    case InstallOutcome::Refused:
        return "refused";
    case InstallOutcome::Silent:
        return "silent";
    }
    return "installed";
}

namespace {

constexpr int MAX_EXTENDS = 4;

bool readScenarioFile(const std::string &path, Scenario &scenario, std::string &error, int depth);

// A scenario may extend another one (a path relative to its own file): the base is read first,
// then every member given here replaces the base's, lists as a whole.
bool applyScenario(const char *text, const std::string &dir, Scenario &loaded, std::string &error,
                   int depth) {
    JsonTree root = jsonParse(text);
    if (!root) {
        error = "not a JSON document";
        return false;
    }
    try {
        objectAt(root.get(), "scenario");
        onlyMembers(root.get(), "",
                    {"name", "description", "extends", "device", "store", "installService",
                     "faults", "files"});
        if (const JsonNode *base = jsonMember(root.get(), "extends")) {
            std::string file = textAt(base, "extends");
            if (depth >= MAX_EXTENDS)
                fail("extends", "scenarios extend each other more than " +
                                    std::to_string(MAX_EXTENDS) + " deep");
            std::string path = g_path_is_absolute(file.c_str()) ? file : dir + "/" + file;
            if (!readScenarioFile(path, loaded, error, depth + 1)) {
                error = "extends: " + file + ": " + error;
                return false;
            }
        }
        if (const JsonNode *name = jsonMember(root.get(), "name"))
            loaded.name = textAt(name, "name");
        if (const JsonNode *description = jsonMember(root.get(), "description"))
            textAt(description, "description");
        if (const JsonNode *device = jsonMember(root.get(), "device"))
            readDevice(device, "device", loaded);
        if (const JsonNode *store = jsonMember(root.get(), "store"))
            readStore(store, "store", loaded);
        if (const JsonNode *service = jsonMember(root.get(), "installService")) {
            readInstallService(service, "installService", loaded);
            readInstallPackages(service, "installService", loaded);
        }
        if (const JsonNode *faults = jsonMember(root.get(), "faults"))
            readFaults(faults, "faults", loaded.faults);
        if (const JsonNode *files = jsonMember(root.get(), "files"))
            readFiles(files, "files", loaded);
    } catch (const ScenarioError &bad) {
        error = bad.message;
        return false;
    }
    return true;
}

bool readScenarioFile(const std::string &path, Scenario &scenario, std::string &error, int depth) {
    gchar *contents = nullptr;
    gsize length = 0;
    GError *readError = nullptr;
    if (!g_file_get_contents(path.c_str(), &contents, &length, &readError)) {
        error = readError->message;
        g_error_free(readError);
        return false;
    }
    bool ok = false;
    if (strlen(contents) != length) {
        error = "the file holds a NUL byte";
    } else if (!g_utf8_validate(contents, static_cast<gssize>(length), nullptr)) {
        error = "the file is not UTF-8 text";
    } else {
        gchar *dir = g_path_get_dirname(path.c_str());
        ok = applyScenario(contents, dir, scenario, error, depth);
        g_free(dir);
    }
    g_free(contents);
    return ok;
}

Scenario defaults() {
    Scenario scenario;
    scenario.deviceId = "SIM0000000000001";
    scenario.carrier = "ROW";
    scenario.machineName = "tarsk";
    scenario.account = Account{"SIMTOKEN0001", "demo@example.com", "ACTIVE", "U0001"};
    scenario.connectivity =
        "{\"isInternetConnectionAvailable\":true,\"wifi\":{\"state\":\"connected\","
        "\"ssid\":\"vyxsim\"},\"wan\":{\"state\":\"connected\",\"network\":\"lte\"}}";
    scenario.display = "{\"event\":\"displayOn\",\"state\":\"on\",\"dockMode\":false}";
    return scenario;
}

} // namespace

bool parseScenario(const char *text, Scenario &scenario, std::string &error) {
    Scenario loaded = defaults();
    if (!applyScenario(text, ".", loaded, error, 0))
        return false;
    scenario = std::move(loaded);
    return true;
}

bool loadScenario(const char *path, Scenario &scenario, std::string &error) {
    Scenario loaded = defaults();
    if (!readScenarioFile(path, loaded, error, 0))
        return false;
    scenario = std::move(loaded);
    return true;
}

bool parseFaults(const char *text, Faults &faults, std::string &error) {
    JsonTree root = jsonParse(text);
    if (!root) {
        error = "not a JSON document";
        return false;
    }
    Faults changed = faults;
    try {
        readFaults(root.get(), "faults", changed);
    } catch (const ScenarioError &bad) {
        error = bad.message;
        return false;
    }
    faults = changed;
    return true;
}

bool parseInstallBehaviour(const char *text, std::string &id, InstallBehaviour &behaviour,
                           std::string &error) {
    JsonTree root = jsonParse(text);
    if (!root || root->type != JSON_OBJECT) {
        error = "expected a JSON object";
        return false;
    }
    try {
        id = idAt(jsonMember(root.get(), "id"), "id");
        // "id" is ours; the rest has the shape of one scenario entry
        std::string rest;
        for (const JsonNode *label = root->child; label; label = label->next)
            if (strcmp(label->text, "id") != 0)
                appendItem(rest,
                           "\"" + std::string(label->text) + "\":" + json_write(label->child));
        JsonTree entry = jsonParse(("{" + rest + "}").c_str());
        InstallBehaviour parsed;
        readBehaviour(entry.get(), "installService.packages." + id, parsed);
        behaviour = parsed;
    } catch (const ScenarioError &bad) {
        error = bad.message;
        return false;
    }
    return true;
}
