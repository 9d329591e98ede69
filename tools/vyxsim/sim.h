// The simulator's live state and the entry points of its parts.
#pragma once

#include <glib.h>

#include <string>

#include "scenario.h"

struct SimState {
    Scenario device;      // the scenario as loaded, then changed by what the daemon does
    std::string storeUrl; // ends with "/": callers append the request name
    int nextProcessId = 1001;
    int allow1x = -1; // last value the download manager was given, -1 never
};

SimState &sim();

// Each part declares its services (nothing reaches the bus before servicesStart()).
void defineDeviceServices();
void defineDisplayServices();
void defineInstallService();
void defineControlService();
void controlSetLoop(GMainLoop *loop); // "quit" ends this loop

// Store web service on 127.0.0.1; `port` 0 picks a free one.
bool storeStart(int port, std::string &error);
void storeStop();
// Applies the current store fault: "down" closes the listening socket, anything else opens it.
bool storeApplyFault(std::string &error);

// Applies a "faults" object (the scenario's shape) over the current faults: services go down or
// come back, the store follows its fault. On failure `error` says what was wrong.
bool faultsChange(const char *faultsObject, std::string &error);

// Injections from the control interface; each returns how many callers were told.
size_t displayInject(const std::string &statusObject);
size_t connectivityInject(const std::string &statusObject);

// Packages of the device, as listPackages shows them.
std::string packagesJson();
void packageInstalled(const Package &package);
bool packageRemove(const std::string &id);
const Package *packageFind(const std::string &id);

std::string installsJson();
std::string activitiesJson();
