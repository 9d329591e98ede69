// The state of a provisioning run. One run is one piece of state, split by concern across the
// files of this directory; nothing outside src/provision/ includes this header.
#pragma once

#include <curl/curl.h>
#include <glib.h>
#include <stdint.h>

#include "common/lists.h"

// Install list, whitelist, delete list and the store profile's packages.
extern StrArray s_ppFiles;
extern unsigned s_FileCount;
extern StrArray s_ppOptionalFiles;
extern unsigned s_OptionalFileCount;
extern StrArray s_ppPurgeFiles;
extern unsigned s_PurgeFileCount;
extern StrArray s_ppProfileFiles;

extern bool s_bHasWhiteList;
extern bool s_bUseOnRamp;
extern bool s_bSetRebootAtEnd;
extern const char *s_KeyFilename;

// Positions of the install walk and of the delete chain; -1 before they start.
extern int s_FileInfoOffset;
extern int s_PurgeFileOffset;

// Accepted install requests; a finished one has its first character overwritten with a TAB.
extern StrArray s_ppInstallFiles;
extern unsigned s_InstallFileCount;
extern unsigned s_InstallFileCompleted;
extern int s_InstallMsgCountDown;
extern int64_t s_LastMsgSecs;

extern CURL *s_CurlHandle;
extern bool s_bWaitForInternet;
extern bool s_bWaitingInstallStatus;

// Cleans the run's easy handle up; with a caller, a handle still there is logged as left over.
void releaseCurlHandle(const char *caller = nullptr);
void freeStrArray(StrArray *array);

// The two halves of the status timer: the wait for a connection and the install status poll.
void restartStatusTimer();
void startConnectionWait();
void installStatusTimerFired();
