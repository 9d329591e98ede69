#include "monitors/connmgr.h"

#include <glib.h>
#include <string.h>

#include "common/json_access.h"
#include "platform/log.h"
#include "service/service.h"

#define CONNMGR_GETSTATUS "velto://com.velto.connectionmanager/getstatus"
#define DOWNLOADMGR_ALLOW1X "velto://com.velto.downloadmanager/allow1x"

static int s_tConnectionStatus = -1;
static int s_t1xDownloadStatus = -1;
static int s_tPending1xDownloadStatus = -1;
static bool s_bConnectionManagerInitialized = false;

int getConnectionStatus(bool subscribe) {
    if (s_tConnectionStatus == -1 && !s_bConnectionManagerInitialized && subscribe) {
        vyxLog(LOG_DEBUG, "%s: About to request Connection Manager updates", "initializeConnMgr");
        if (callService("initializeConnMgr", CONNMGR_GETSTATUS, "{\"subscribe\":true}", connMgrCB))
            s_bConnectionManagerInitialized = true;
    }
    return s_tConnectionStatus;
}

int get1xDownloadStatus() {
    return s_t1xDownloadStatus;
}

void setAllow1xDownloads(bool allow) {
    char payload[32];
    g_snprintf(payload, sizeof payload, "{\"value\": %s}", allow ? "true" : "false");
    vyxLog(LOG_DEBUG, "%s: Params: %s", "setAllow1xDownloads", payload);
    s_tPending1xDownloadStatus = -1;
    if (callService("setAllow1xDownloads", DOWNLOADMGR_ALLOW1X, payload, setAllow1xDownloadsCB))
        s_tPending1xDownloadStatus = allow ? 1 : 0;
}

bool setAllow1xDownloadsCB(BusHandle *, BusMessage *reply, void *) {
    static const char self[] = "setAllow1xDownloadsCB";
    JsonTree root = prvKSMessageGetPayloadJSON(reply);
    if (ignoreJsonResponse(root.get(), self))
        return true;
    const char *payload = logText(KSMessageGetPayload(reply));
    const JsonNode *returnValue = prvJsonFindFirstLabel(root.get(), "returnValue", self);
    if (isJsonObjectTrue(returnValue) && s_tPending1xDownloadStatus != -1) {
        vyxLog(LOG_DEBUG, "%s: OK response: %s", self, payload);
        s_t1xDownloadStatus = s_tPending1xDownloadStatus;
    } else {
        vyxLog(LOG_DEBUG, "%s: Unexpected response: %s", self, payload);
    }
    s_tPending1xDownloadStatus = -1;
    return true;
}

bool connMgrCB(BusHandle *, BusMessage *reply, void *) {
    static const char self[] = "connMgrCB";
    JsonTree root = prvKSMessageGetPayloadJSON(reply);
    // With the connection manager down nothing will be reported; the subscription counts as
    // made all the same, so later status checks do not keep calling a service that is absent.
    if (ignoreJsonResponse(root.get(), self)) {
        s_bConnectionManagerInitialized = true;
        s_tConnectionStatus = -1;
        return true;
    }
    const char *payload = logText(KSMessageGetPayload(reply));
    const JsonNode *available =
        prvJsonFindFirstLabel(root.get(), "isInternetConnectionAvailable", self);
    const JsonNode *returnValue = prvJsonFindFirstLabel(root.get(), "returnValue", self);
    if (!available) {
        if (isJsonObjectTrue(returnValue)) {
            vyxLog(LOG_DEBUG, "%s: OK response: %s", self, payload);
            return true;
        }
        vyxLog(LOG_DEBUG, "%s: Unexpected response: %s", self, payload);
        if (isJsonObjectFalse(returnValue))
            shutdownConnMgr();
        return true;
    }
    vyxLog(LOG_DEBUG, "%s: Connection: %s, retVal: %s", self,
           decodeJsonObjectType(available->child),
           decodeJsonObjectType(returnValue ? returnValue->child : nullptr));
    if (isJsonObjectFalse(available))
        s_tConnectionStatus = 0;
    else if (isJsonObjectTrue(available))
        s_tConnectionStatus = 1;
    else
        s_tConnectionStatus = -1;

    const JsonNode *wan = prvJsonFindFirstLabel(root.get(), "wan", self);
    const JsonNode *wifi = prvJsonFindFirstLabel(root.get(), "wifi", self);
    const char *network = getJsonString(wan, "network");
    const char *wifiState = getJsonString(wifi, "state");
    if (strcmp(wifiState, "connected") == 0) {
        if (network[0] == '\0')
            vyxLog(LOG_DEBUG, "%s: Unexpected payload: %s", self, payload);
        return true;
    }
    // Off Wi-Fi the download manager refuses cellular downloads until 1x is allowed; the
    // permission stays until shutdown even when Wi-Fi comes back.
    if (s_t1xDownloadStatus != 1)
        setAllow1xDownloads(true);
    return true;
}

bool shutdownConnMgr() {
    static const char self[] = "shutdownConnMgr";
    if (!s_bConnectionManagerInitialized) {
        vyxLog(LOG_DEBUG, "%s: Connection Manager listener offline", self);
        return false;
    }
    if (!getKovaServiceHandle()) {
        vyxLog(LOG_DEBUG, "%s: Kova service handle is NULL", self);
        return false;
    }
    if (s_t1xDownloadStatus == 1)
        setAllow1xDownloads(false);
    vyxLog(LOG_DEBUG, "%s: Shutdown Connection Manager listener", self);
    if (!callService(self, CONNMGR_GETSTATUS, "{\"subscribe\":false}", genericCB))
        return false;
    s_bConnectionManagerInitialized = false;
    s_tConnectionStatus = -1;
    vyxLog(LOG_DEBUG, "%s: Connection Manager listener is shutdown", self);
    return true;
}
