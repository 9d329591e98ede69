// The connection manager subscription and the download manager's 1x permission.
#pragma once

#include "platform/bus.h"

int getConnectionStatus(bool subscribe); // TriState
int get1xDownloadStatus();
void setAllow1xDownloads(bool allow);
bool shutdownConnMgr();
bool connMgrCB(BusHandle *handle, BusMessage *reply, void *context);
bool setAllow1xDownloadsCB(BusHandle *handle, BusMessage *reply, void *context);
