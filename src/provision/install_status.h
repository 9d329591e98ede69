// Following the installs the walk asked for: the install service's status, polled every
// 2000 ms, the progress table, and the overall percent the core application shows.
#pragma once

#include <stdint.h>

#include "platform/bus.h"

enum InstallStatusCode {
    INSTALL_DONE = 0,
    INSTALL_ACTIVE = 1,
    INSTALL_DOWNLOADING = 2,
    INSTALL_ICON = 3,
    INSTALL_CANCELED = 4,
    INSTALL_PAUSED = 5,
    INSTALL_FAILED = 6,
    INSTALL_REMOVING = 7,
    INSTALL_REMOVED = 8,
    INSTALL_UNKNOWN = 90,
    INSTALL_INVALID = 91,
};

struct InstallProgressEntry {
    char id[256];
    uint32_t size;
    uint32_t percent;
    InstallStatusCode state;
    bool seen;
};

// Every 2000 ms while a run waits for a connection or for installs to finish.
int statusTimerCB(void *data);
bool requestInstallStatus();
bool installStatusCB(BusHandle *handle, BusMessage *reply, void *context);
InstallStatusCode getStatusInstallService(const char *state, const char *progress,
                                          unsigned *progressOut);
bool updateInstallProgressTable(const char *id, InstallStatusCode code, unsigned progress);
void addToInstallProgressTable(const char *id, uint32_t size);
// The overall percent over the progress table. Not a plain getter: a percent above the last one
// re-arms the exit timer (EXIT_TIMER_LONG_MS), since installs that progress keep the service up.
unsigned computeInstallPercent();
void resetDownloadFileProgress();
