#include "store/app_detail.h"

#include <glib.h>
#include <stdlib.h>
#include <string.h>

#include "common/json_access.h"
#include "common/version.h"
#include "platform/log.h"
#include "service/service.h"
#include "store/app_listing.h"
#include "store/transfer.h"
#include "sysinfo/sysinfo.h"

#define DETAIL_BODY_FORMAT                                                                         \
    "{'InGetAppDetailV2':{'accountTokenInfo':{'token':'%s','deviceId':'%s','email':'%s'},"         \
    "'packageId':'%s','locale':'%s' } }"
#define INSTALL_REQUEST_FORMAT                                                                     \
    "{'catalogId':%d,'id':'%s','title':'%s','version':'%s','vendor':%d,'vendorUrl':'%s',"          \
    "'iconUrl':'%s','ipkUrl':'%s','authToken':'%s','deviceId':'%s'}"

constexpr size_t INSTALLED_VERSION_MAX = 99;
constexpr size_t DEBUG_COPY_MAX = 450;

static char *s_outgoingData = nullptr;
static uint32_t s_dataOffset = 0;
static char *s_incomingData = nullptr;

// ---------------------------------------------------------------------------------------------
// Transfer callbacks

static size_t write_data(char *ptr, size_t size, size_t nmemb, void *) {
    static const char self[] = "write_data";
    size_t n = size * nmemb;
    if (n == 0) {
        vyxLog(LOG_DEBUG, "%s: Called with zero size [%d] or memb [%d]", self, (int)size,
               (int)nmemb);
        return 0;
    }
    if (!ptr) {
        vyxLog(LOG_DEBUG, "%s: Called with NULL ptr for data (len: %d)", self, (int)n);
        return n;
    }
    char *copy = storeCopyChunk(ptr, n);
    vyxLog(LOG_DEBUG, "%s: Copied", self);
    vyxLog(LOG_DEBUG, "%s: data: [%s]", self, copy);
    if (storeAppendReply(&s_incomingData, copy))
        vyxLog(LOG_DEBUG, "%s: Appended, new len: %d", self, (int)strlen(s_incomingData));
    return n;
}

static size_t read_data(char *buffer, size_t size, size_t nitems, void *) {
    if (!s_outgoingData)
        return 0;
    vyxLog(LOG_DEBUG, "%s: len requested: %d, data: [%s]", "read_data", (int)(size * nitems),
           s_outgoingData);
    return storeReadBody(s_outgoingData, &s_dataOffset, buffer, size * nitems);
}

static size_t httpHeader(char *ptr, size_t size, size_t nitems, void *) {
    size_t n = size * nitems;
    if (!ptr || n == 0)
        vyxLog(LOG_DEBUG, "%s: Called with NULL ptr or zero length", "httpHeader");
    if (!ptr)
        return n;
    g_autofree char *line = g_strndup(ptr, n);
    vyxLog(LOG_DEBUG, "%s: len: %d,  Called with [%s]", "httpHeader", (int)n, line);
    return n;
}

static int debug_callback(CURL *, curl_infotype type, char *data, size_t size, void *) {
    const char *name = decodeCurlInfoType(type);
    if (!data || size == 0) {
        vyxLog(LOG_DEBUG, "CurlCallback: type:%s, NULL or empty, len:%d", name, (int)size);
        return 0;
    }
    vyxLog(LOG_DEBUG, "CurlCallback: Data looks valid, len:%d, type:%x", (int)size, (unsigned)type);
    g_autofree char *copy = g_strndup(data, MIN(size, DEBUG_COPY_MAX));
    vyxLog(LOG_DEBUG, "CurlCallback: type:%s, Data looks %s", name, copy ? "OK" : "NULL");
    vyxLog(LOG_DEBUG, "CurlCallback: type:%s, msg:%s", name, logText(copy));
    return 0;
}

// ---------------------------------------------------------------------------------------------
// Detail query

// The value's own text, as the store wrote it; "" for values without one.
static const char *prvValueText(const JsonNode *label) {
    return label && label->child && label->child->text ? label->child->text : "";
}

static int prvDecimal(const char *text) {
    return (int)strtol(text, nullptr, 10);
}

static char *prvInstallRequest(const JsonNode *appDetail, const char *catalogVersion) {
    return g_strdup_printf(
        INSTALL_REQUEST_FORMAT, prvDecimal(getJsonString(appDetail, "id")),
        getJsonString(appDetail, "publicApplicationId"), getJsonString(appDetail, "title"),
        catalogVersion, prvDecimal(getJsonString(appDetail, "vendorid")),
        getJsonString(appDetail, "homeURL"), getJsonString(appDetail, "appIcon"),
        getJsonString(appDetail, "appLocation"), getAccountToken(0), getDeviceId());
}

static bool parseBazaroResponse(const char *packageId, const char *installedVersion, bool *found,
                                char **installText, int32_t *size) {
    static const char self[] = "parseBazaroResponse";
    const char *id = logText(packageId);
    if (!s_incomingData || !found) {
        vyxLog(LOG_ERR, "%s: [%s] Reply is NULL, can't process", self, id);
        return false;
    }
    vyxLog(LOG_DEBUG, "%s: %s", self, s_incomingData);
    JsonTree root = jsonParse(s_incomingData);
    const JsonNode *out = prvJsonFindFirstLabel(root.get(), "OutGetAppDetailV2", self);
    const JsonNode *exception = prvJsonFindFirstLabel(root.get(), "JSONException", self);

    if (out && out->child) {
        *found = true;
        bool understood = false;
        const JsonNode *appDetail = prvJsonFindFirstLabel(out->child, "appDetail", self);
        if (!appDetail || !appDetail->child) {
            vyxLog(LOG_ALERT, "%s: [%s] Couldn't find 'appDetail': %s", self, id, s_incomingData);
        } else {
            const JsonNode *version = prvJsonFindFirstLabel(appDetail->child, "version", self);
            const JsonNode *appSize = prvJsonFindFirstLabel(appDetail->child, "appSize", self);
            const char *catalogVersion = prvValueText(version);
            if (!version || !version->child) {
                vyxLog(LOG_ALERT, "%s: [%s] Couldn't find 'version': %s", self, id, s_incomingData);
            } else if (installedVersion && *installedVersion &&
                       versionCompare(installedVersion, catalogVersion) >= 0) {
                // An installed copy newer than the store's is kept as well: never downgrade.
                vyxLog(LOG_DEBUG,
                       "%s: Bazaro returned info for [%s], version: %s, local copy is current",
                       self, id, catalogVersion);
                understood = true;
            } else {
                char *request = prvInstallRequest(appDetail, catalogVersion);
                vyxLog(LOG_DEBUG, "%s: %s", self, request);
                if (installText)
                    *installText = request;
                else
                    g_free(request);
                understood = true;
            }
            if (size)
                *size = prvDecimal(prvValueText(appSize));
        }
        restartExitTimer(EXIT_TIMER_LONG_MS);
        return understood;
    }
    if (exception) {
        *found = false;
        const char *message = getJsonString(exception, "message");
        vyxLog(LOG_ALERT, "%s: [%s] %s", self, id, *message ? message : "Error");
        restartExitTimer(EXIT_TIMER_LONG_MS);
        return true;
    }
    vyxLog(LOG_ALERT, "%s: [%s] Malformed reply or invalid reply: %s", self, id, s_incomingData);
    return false;
}

bool checkBazaro(CURL *handle, const char *packageId, const char *installedVersion, bool *found,
                 char **installText, int32_t *size) {
    static const StoreTransfer transfer = {"checkBazaro",   "appDetail_ext2", write_data,
                                           read_data,       httpHeader,       debug_callback,
                                           &s_outgoingData, &s_dataOffset,    &s_incomingData};
    char *body = g_strdup_printf(DETAIL_BODY_FORMAT, getAccountToken(0), getDeviceId(),
                                 getAccountToken(1), logText(packageId), getLocale());
    if (!runStoreTransfer(handle, transfer, body))
        return false;
    return parseBazaroResponse(packageId, installedVersion, found, installText, size);
}

// ---------------------------------------------------------------------------------------------
// Installed packages

bool doesPackageExist(const char *packageId, char *version) {
    static const char self[] = "doesPackageExist";
    const char *listing = getPkgListJSON();
    if (!packageId || !*packageId || !listing)
        return false;
    JsonTree root = jsonParse(listing);
    const JsonNode *apps = findListingPackages(root.get(), ListingMembers::AppsOrPackages, self);
    const JsonNode *array = apps ? apps->child : nullptr;
    if (!array || array->type != JSON_ARRAY || !array->child) {
        if (!ignoreJsonResponse(root.get(), self))
            vyxLog(LOG_DEBUG, "%s: Name [%s] is not found", self, packageId);
        return false;
    }
    if (version)
        version[0] = '\0';
    int checked = 0;
    for (const JsonNode *app = array->child; app; app = app->next) {
        checked++;
        const JsonNode *id = prvJsonFindFirstLabel(app, "id", self);
        if (!id || !id->child || g_strcmp0(id->child->text, packageId) != 0)
            continue;
        const JsonNode *installed = prvJsonFindFirstLabel(app, "version", self);
        if (version && installed && installed->child && installed->child->text)
            g_strlcpy(version, installed->child->text, INSTALLED_VERSION_MAX + 1);
        vyxLog(LOG_DEBUG, "%s: Name [%s] is found, version #%s", self, packageId,
               version ? version : "");
        return true;
    }
    vyxLog(LOG_DEBUG, "%s: Name [%s] is not found after checking %d apps", self, packageId,
           checked);
    return false;
}

void appDetailMemoryFree() {
    g_clear_pointer(&s_outgoingData, g_free);
    g_clear_pointer(&s_incomingData, g_free);
}
