// The provisioning run's state and the demonstration application's presence flag.
#pragma once

enum DownloadStateMode {
    DSM_IDLE = 0,
    DSM_ONRAMP = 1,
    DSM_LOCAL = 2,
    DSM_INSTALLING = 3,
    DSM_RECONCILE = 4,
    DSM_STARTUP = 5,
};

int getDownloadStateMode();
void setDownloadStateMode(int mode, const char *caller);
void setDownloadReason(bool startupVyxMode);

// TriState: -1 unknown, 0 absent, 1 present.
void setVyxAppPresent(int present);
void clearVyxAppPresent();
int isVyxAppPresent();

// Starts a run (only while none is in progress).
void initiateFileDownload();

void appdownloadMemoryFree();
