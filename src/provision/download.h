// A provisioning run (the map of its phases is provision/run.h): its start, the on-ramp step that
// asks the store for the user's profile, the wait for a connection, and the final start of the
// demonstration application.
#pragma once

#include "platform/bus.h"
#include "provision/run.h"

void setDownloadReason(bool startupVyxMode);

// TriState: -1 unknown, 0 absent, 1 present.
void setVyxAppPresent(int present);
void clearVyxAppPresent();
int isVyxAppPresent(); // an unknown or absent application is logged at alert priority

// Starts a run (only while none is in progress).
void initiateFileDownload();
// The listing that starts the run has arrived and been cached.
void startFileDownload();
// True when the on-ramp step has taken the run over (it waits, has asked the store, or ended the
// install phase itself); false when the profile query could not be made.
bool checkOnRampInfo();
// Lists are ";"-joined, items "id" or "id<TAB>version"; either may be null.
void startupApplication(const char *changedList, unsigned changedCount, const char *currentList,
                        unsigned currentCount);
bool prvRunVYXCB(BusHandle *handle, BusMessage *reply, void *context);

void appdownloadMemoryFree();
