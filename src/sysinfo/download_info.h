// The "downloadAppInfo" method: hands the gathered system information to the demonstration
// application once the gathering concludes.
#pragma once

#include "platform/bus.h"

bool downloadSystemInfo(BusHandle *handle, BusMessage *message, void *context);
void sendSystemInfo(const char *caller);
void sendDownloadErrorResponse(const char *caller);
void setRunLocalFileDownload(bool run);
bool isRunLocalFileDownload();
void getVyxVideoName(char *buffer); // buffer of at least 99 bytes
void getsysteminfoMemoryFree();
