// A scenario: the simulated device, its store and the faults to play, read from a JSON file.
// The format is documented in examples/scenarios/README.md. After loading, the scenario is the
// simulator's live state: the services change it as the daemon works on the device.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

struct Package {
    std::string id;
    std::string version;
    std::string title;
    bool userInstalled = false;
    std::string icon; // plain slashes; written escaped
};

struct RunningApp {
    std::string id;
    int processId = 0;
};

struct Account {
    std::string token;
    std::string alias;
    std::string state = "ACTIVE";
    std::string uniqueId;
};

struct CatalogueEntry {
    std::string id; // publicApplicationId
    std::string version;
    std::string title;
    long long size = 0;
    long long catalogId = 0;
    long long vendorId = 0;
    std::string homeUrl;
    std::string location; // empty: a URL on the simulator's own store
    std::string icon;
};

// Silent: the request is accepted, but the install never shows in status.
enum class InstallOutcome { Installed, Failed, Canceled, Refused, Silent };

struct InstallBehaviour {
    InstallOutcome outcome = InstallOutcome::Installed;
    unsigned durationMs = 0; // 0: the scenario's default
    unsigned failAt = 50;    // download percent where a failed or canceled install stops
    bool userInstalled = true;
};

enum class StoreFault { None, Down, Slow, Http500, Malformed, Garbage, Truncated, Chunked };

struct Faults {
    std::vector<std::string> notRunning;
    StoreFault store = StoreFault::None;
    unsigned storeDelayMs = 5000;
    std::vector<std::string> storeMethods; // empty: every store request
    bool statusSilent = false;             // install status calls are never answered
};

struct Scenario {
    std::string name;

    // device
    std::vector<std::pair<std::string, std::string>> preferences; // key, JSON value text
    std::vector<Package> packages;
    std::vector<RunningApp> running;
    std::optional<Account> account;
    std::optional<std::string> carrier;
    std::optional<std::string> machineName;
    std::string deviceId;
    std::string connectivity; // JSON object text of the connection manager status
    std::string display;      // JSON object text of the display status

    // store
    int storePort = 0;
    std::string storePath = "/";
    std::vector<CatalogueEntry> catalogue;
    std::vector<std::string> profile;

    // install service
    unsigned installDurationMs = 3000;
    unsigned installMsPerMiB = 0; // added per MiB of the package's catalogue size
    bool statusSingleForm = false;
    std::map<std::string, InstallBehaviour> installs;

    Faults faults;

    // files put under the root before the daemon starts (absolute path, content)
    std::vector<std::pair<std::string, std::string>> files;
};

// Loads and checks a scenario file. On failure `error` says where and what is wrong.
bool loadScenario(const char *path, Scenario &scenario, std::string &error);
bool parseScenario(const char *text, Scenario &scenario, std::string &error);

// Applies a "faults" object (the scenario's shape) over `faults`; used by the loader and by the
// control interface.
bool parseFaults(const char *text, Faults &faults, std::string &error);
bool parseStoreFault(const std::string &word, StoreFault &fault);
const char *storeFaultName(StoreFault fault);
bool parseInstallBehaviour(const char *text, std::string &id, InstallBehaviour &behaviour,
                           std::string &error);
const char *installOutcomeName(InstallOutcome outcome);

// The icon path the platform gives a package in the user application area.
std::string userIconPath(const std::string &id);
