// The connection manager subscription and the download manager's 1x permission.
#pragma once

#include "platform/bus.h"

// TriState. With `subscribe`, a call while the state is unknown also subscribes to the
// connection manager, once.
int getConnectionStatus(bool subscribe);
int get1xDownloadStatus();
void setAllow1xDownloads(bool allow);
bool shutdownConnMgr();
bool connMgrCB(BusHandle *handle, BusMessage *reply, void *context);
bool setAllow1xDownloadsCB(BusHandle *handle, BusMessage *reply, void *context);
