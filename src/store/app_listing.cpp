#include "store/app_listing.h"

#include <glib.h>

#include "common/json_access.h"
#include "platform/log.h"

static char *s_pkgListJSONPayload = nullptr;
static char *s_StartingPkgListJSONPayload = nullptr;

// A listing counts when it names its packages, even as an empty array.
static bool isListing(const JsonNode *root) {
    return root && root->type == JSON_OBJECT &&
           (json_find_first_label(root, "apps") || json_find_first_label(root, "packages"));
}

static bool cacheListing(BusMessage *reply) {
    JsonTree root = prvKSMessageGetPayloadJSON(reply);
    if (!isListing(root.get())) {
        if (!ignoreJsonResponse(root.get(), "listPkgsCB"))
            vyxLog(LOG_DEBUG, "%s: invalid response - no apps listed", "listPkgsCB");
        return false;
    }
    g_free(s_pkgListJSONPayload);
    s_pkgListJSONPayload = g_strdup(KSMessageGetPayload(reply));
    vyxLog(LOG_DEBUG, "%s: %s", "listPkgsCB", s_pkgListJSONPayload);
    return true;
}

bool listPkgsCB(BusHandle *, BusMessage *reply, void *) {
    cacheListing(reply);
    return true;
}

bool listPkgsCBRun(BusHandle *, BusMessage *reply, void *) {
    JsonTree root = prvKSMessageGetPayloadJSON(reply);
    if (isListing(root.get()))
        vyxLog(LOG_DEBUG, "%s: payload: %s", "listPkgsCBRun", KSMessageGetPayload(reply));
    // The provisioning run that this listing starts is connected when provisioning lands;
    // until then the listing only refreshes the cache.
    cacheListing(reply);
    return true;
}

const char *getPkgListJSON() {
    return s_pkgListJSONPayload;
}

bool isFileDownloadInProcess() {
    return s_StartingPkgListJSONPayload != nullptr;
}

void clearPkgListJSON() {
    g_clear_pointer(&s_pkgListJSONPayload, g_free);
    g_clear_pointer(&s_StartingPkgListJSONPayload, g_free);
}

void getapplicationinfoMemoryFree() {
    clearPkgListJSON();
}
