#include "sysinfo/sysinfo.h"

#include <glib.h>
#include <stdint.h>
#include <string.h>

#include "common/json_access.h"
#include "common/texts.h"
#include "platform/log.h"
#include "provision/run.h"
#include "service/app_control.h"
#include "service/service.h"
#include "status/run_record.h"
#include "store/app_listing.h"
#include "sysinfo/download_info.h"

// QueryState values of s_queryStatus.
constexpr int32_t QUERY_NOT_OBTAINED = -1;
constexpr int32_t QUERY_ASKED = 0;
constexpr int32_t QUERY_OBTAINED = 1;

constexpr unsigned ACCOUNT_SLOTS = 4;
constexpr size_t TEXT_SIZE = 101;
constexpr size_t CARRIER_MAX = 99;
constexpr size_t SERVER_URL_SIZE = 257;

static char s_accountToken[ACCOUNT_SLOTS][TEXT_SIZE];
static char s_carrierId[TEXT_SIZE];
static char s_deviceId[TEXT_SIZE];
static char s_locale[TEXT_SIZE];
static char s_serverUrl[SERVER_URL_SIZE];
static int32_t s_queryStatus[SI_COUNT] = {QUERY_NOT_OBTAINED, QUERY_NOT_OBTAINED,
                                          QUERY_NOT_OBTAINED, QUERY_NOT_OBTAINED,
                                          QUERY_NOT_OBTAINED};
static int s_tValidAccountTokens = -1;
static int s_hardwareType = HW_UNDEFINED;

struct SystemInfoQuery {
    const char *tag; // "requestSystemInfo-<item>", the prefix of a failed call's log line
    const char *uri;
    const char *payload;
    BusMethodHandler callback;
    const char *storedText;
};

static const SystemInfoQuery s_queries[SI_COUNT] = {
    {"requestSystemInfo-accountToken", "velto://com.velto.accountservices/getAccountToken", "{}",
     accountTokenCB, s_accountToken[0]},
    {"requestSystemInfo-carrier",
     "velto://com.velto.preferences/systemProperties/getSomeSysPropertiesObj",
     "[{\"key\":\"com.velto.properties.DMCARRIER\"},{\"key\":\"com.velto.properties.machineName\"}"
     "]",
     carrierCB, s_carrierId},
    {"requestSystemInfo-device", "velto://com.velto.deviceprofile/getDeviceId", "{}", deviceIdCB,
     s_deviceId},
    {"requestSystemInfo-locale", "velto://com.velto.systemservice/getPreferences",
     "{\"keys\":[\"locale\"]}", localeCB, s_locale},
    {"requestSystemInfo-serverUrl", "velto://com.velto.accountservices/getServerUrl", "{}",
     serverUrlCB, s_serverUrl},
};

// ---------------------------------------------------------------------------------------------
// Getters

const char *getAccountToken(unsigned index) {
    return index < ACCOUNT_SLOTS ? s_accountToken[index] : "";
}
const char *getCarrierId() {
    return s_carrierId;
}
const char *getDeviceId() {
    return s_deviceId;
}
const char *getLocale() {
    return s_locale;
}
const char *getServerUrl() {
    return s_serverUrl;
}
bool validAccountTokens() {
    return s_tValidAccountTokens == 1;
}
int getHardwareType() {
    return s_hardwareType;
}
void setValidAccountTokens(int tristate) {
    s_tValidAccountTokens = tristate;
}

// ---------------------------------------------------------------------------------------------
// State tests

static void prvLogStatus(const char *self, const char *caller) {
    char status[64];
    g_snprintf(status, sizeof status, "AT:%d, CR:%d, DV:%d, LC:%d, SU:%d", s_queryStatus[0],
               s_queryStatus[1], s_queryStatus[2], s_queryStatus[3], s_queryStatus[4]);
    vyxLog(LOG_DEBUG, "%s called by %s: SysInfo Status: %s", self, logText(caller), status);
}

static int prvCountStates(int32_t state) {
    int count = 0;
    for (int32_t value : s_queryStatus)
        count += value == state;
    return count;
}

bool isSystemInfoRequestInProcess(const char *caller) {
    prvLogStatus("isSystemInfoRequestInProcess", caller);
    return prvCountStates(QUERY_ASKED) > 0;
}

bool isAllSystemInfoRequestsEnded(const char *caller) {
    prvLogStatus("isAllSystemInfoRequestsEnded", caller);
    return prvCountStates(QUERY_ASKED) == 0;
}

bool isAllSystemInfoPresent(const char *caller) {
    prvLogStatus("isAllSystemInfoPresent", caller);
    return prvCountStates(QUERY_OBTAINED) == SI_COUNT;
}

// ---------------------------------------------------------------------------------------------
// Requests

static void prvSendCheckIfFileDownloadWaits() {
    if (isRunLocalFileDownload())
        launchVYXCoreMessage(POPUP_CHECK, nullptr, nullptr);
}

static void prvRequestPackageListing() {
    callService("requestSystemInfo", APP_MANAGER_LIST_PACKAGES, "{}", listPkgsCB);
}

bool requestSystemInfo() {
    vyxLog(LOG_DEBUG, "%s: About to request locale, carrier, deviceID Preferences",
           "requestSystemInfo");
    restartExitTimer(EXIT_TIMER_LONG_MS);
    runRecordPhase(RunPhase::GatheringSystemInfo);
    for (int item = 0; item < SI_COUNT; item++) {
        const SystemInfoQuery &query = s_queries[item];
        if (query.storedText[0] != '\0' || s_queryStatus[item] == QUERY_ASKED)
            continue;
        if (!callService(query.tag, query.uri, query.payload, query.callback)) {
            prvRequestPackageListing();
            prvSendCheckIfFileDownloadWaits();
            if (isAllSystemInfoRequestsEnded("requestSystemInfo"))
                sendDownloadErrorResponse("requestSystemInfo");
            return false;
        }
        s_queryStatus[item] = QUERY_ASKED;
    }
    prvRequestPackageListing();
    restartExitTimer(EXIT_TIMER_LONG_MS);
    prvSendCheckIfFileDownloadWaits();
    return true;
}

// ---------------------------------------------------------------------------------------------
// Replies

// Platform services answer with strings, numbers or both for the same member; only a value
// that carries text counts, so true, false, null, objects and arrays read as missing.
static const char *prvMemberText(const JsonNode *object, const char *key, const char *caller) {
    const JsonNode *label = prvJsonFindFirstLabel(object, key, caller);
    if (!label || !label->child)
        return nullptr;
    return label->child->text;
}

static void prvCompletionCheck(const char *caller) {
    if (isAllSystemInfoPresent(caller))
        sendSystemInfo(caller);
    else if (isAllSystemInfoRequestsEnded(caller))
        sendDownloadErrorResponse(caller);
}

bool accountTokenCB(BusHandle *, BusMessage *reply, void *) {
    static const char self[] = "accountTokenCB";
    JsonTree root = prvKSMessageGetPayloadJSON(reply);
    const char *token = prvMemberText(root.get(), "token", self);
    const char *alias = prvMemberText(root.get(), "accountAlias", self);
    const char *state = prvMemberText(root.get(), "accountState", self);
    const char *uniqueId = prvMemberText(root.get(), "uniqueId", self);
    const char *payload = logText(KSMessageGetPayload(reply));

    if (s_queryStatus[SI_ACCOUNT_TOKEN] == QUERY_OBTAINED && token) {
        vyxLog(LOG_DEBUG, "%s: Already set: %s", self, s_accountToken[0]);
        return true;
    }
    if (s_queryStatus[SI_ACCOUNT_TOKEN] != QUERY_OBTAINED && token && alias && state) {
        vyxLog(LOG_DEBUG, "%s: payload %s", self, payload);
        copyReceivedText(s_accountToken[0], token, TEXT_SIZE);
        copyReceivedText(s_accountToken[1], alias, TEXT_SIZE);
        copyReceivedText(s_accountToken[2], state, TEXT_SIZE);
        if (uniqueId)
            copyReceivedText(s_accountToken[3], uniqueId, TEXT_SIZE);
        s_queryStatus[SI_ACCOUNT_TOKEN] = QUERY_OBTAINED;
        prvCompletionCheck(self);
        restartExitTimer(EXIT_TIMER_LONG_MS);
        s_tValidAccountTokens = 1;
        return true;
    }
    // The account service being down is not an answer: the query stays outstanding.
    if (ignoreJsonResponse(root.get(), self))
        return true;
    prvSendCheckIfFileDownloadWaits();
    vyxLog(LOG_DEBUG, "%s: token/alias/state not found: ERROR: %s", self, payload);
    s_queryStatus[SI_ACCOUNT_TOKEN] = QUERY_NOT_OBTAINED;
    s_tValidAccountTokens = 0;
    for (char *slot : s_accountToken)
        slot[0] = '\0';
    // A parked file download must not wait for the other items once the account is gone.
    bool ended = isAllSystemInfoRequestsEnded(self);
    if (ended || isRunLocalFileDownload())
        sendDownloadErrorResponse(self);
    return true;
}

static int prvHardwareTypeOf(const char *machineName) {
    static const struct {
        const char *name;
        int type;
    } machines[] = {{"fenlo", HW_FENLO}, {"tarsk", HW_TARSK}, {"ombrel", HW_OMBREL}};
    for (const auto &machine : machines)
        if (strcmp(machineName, machine.name) == 0)
            return machine.type;
    return HW_UNKNOWN;
}

// A not-running report, or a reply for an item obtained already, changes nothing.
static bool prvReplyWanted(const JsonNode *root, SystemInfoItem item, const char *stored,
                           const char *self) {
    if (ignoreJsonResponse(root, self))
        return false;
    if (s_queryStatus[item] == QUERY_OBTAINED) {
        vyxLog(LOG_DEBUG, "%s: Already set: %s", self, stored);
        return false;
    }
    return true;
}

bool carrierCB(BusHandle *, BusMessage *reply, void *) {
    static const char self[] = "carrierCB";
    JsonTree root = prvKSMessageGetPayloadJSON(reply);
    if (!prvReplyWanted(root.get(), SI_CARRIER, s_carrierId, self))
        return true;
    bool carrierFound = false;
    bool typeFound = false;
    const JsonNode *values = prvJsonFindFirstLabel(root.get(), "values", self);
    const JsonNode *array = values ? values->child : nullptr;
    if (array && array->type == JSON_ARRAY && array->child) {
        vyxLog(LOG_DEBUG, "%s: payload %s", self, logText(KSMessageGetPayload(reply)));
        for (const JsonNode *element = array->child; element; element = element->next) {
            const char *carrier = prvMemberText(element, "com.velto.properties.DMCARRIER", self);
            if (carrier) {
                copyReceivedText(s_carrierId, carrier, CARRIER_MAX + 1);
                carrierFound = true;
            }
            const char *machine = prvMemberText(element, "com.velto.properties.machineName", self);
            if (machine) {
                s_hardwareType = prvHardwareTypeOf(machine);
                typeFound = true;
            }
            if (carrierFound && typeFound)
                break;
        }
    }
    if (!carrierFound) {
        vyxLog(LOG_DEBUG, "%s: carrier not found, substituting ROW", self);
        g_strlcpy(s_carrierId, "ROW", sizeof s_carrierId);
    }
    if (!typeFound) {
        vyxLog(LOG_DEBUG, "%s: hardware type not found, setting to unknown", self);
        s_hardwareType = HW_UNKNOWN;
    }
    vyxLog(LOG_DEBUG, "%s: carrier: %s, hardware type: %d", self, s_carrierId, s_hardwareType);
    s_queryStatus[SI_CARRIER] = QUERY_OBTAINED;
    restartExitTimer(EXIT_TIMER_LONG_MS);
    prvCompletionCheck(self);
    return true;
}

bool deviceIdCB(BusHandle *, BusMessage *reply, void *) {
    static const char self[] = "deviceIdCB";
    JsonTree root = prvKSMessageGetPayloadJSON(reply);
    if (!prvReplyWanted(root.get(), SI_DEVICE_ID, s_deviceId, self))
        return true;
    const char *deviceId = prvMemberText(root.get(), "deviceId", self);
    if (deviceId) {
        vyxLog(LOG_DEBUG, "%s: payload %s", self, logText(KSMessageGetPayload(reply)));
        copyReceivedText(s_deviceId, deviceId, sizeof s_deviceId);
        s_queryStatus[SI_DEVICE_ID] = QUERY_OBTAINED;
        prvCompletionCheck(self);
        restartExitTimer(EXIT_TIMER_LONG_MS);
        return true;
    }
    vyxLog(LOG_DEBUG, "%s: deviceId not found: ERROR", self);
    s_queryStatus[SI_DEVICE_ID] = QUERY_NOT_OBTAINED;
    s_tValidAccountTokens = 0;
    if (isAllSystemInfoRequestsEnded(self))
        sendDownloadErrorResponse(self);
    return true;
}

bool localeCB(BusHandle *, BusMessage *reply, void *) {
    static const char self[] = "localeCB";
    JsonTree root = prvKSMessageGetPayloadJSON(reply);
    if (!prvReplyWanted(root.get(), SI_LOCALE, s_locale, self))
        return true;
    const char *language = nullptr;
    const char *country = nullptr;
    const JsonNode *locale = prvJsonFindFirstLabel(root.get(), "locale", self);
    if (locale && locale->child) {
        language = prvMemberText(locale->child, "languageCode", self);
        country = prvMemberText(locale->child, "countryCode", self);
    }
    if (language && country) {
        vyxLog(LOG_DEBUG, "%s: payload %s", self, logText(KSMessageGetPayload(reply)));
        // Cut at the field's end: an overlong country code loses its tail first.
        g_autofree char *joined = g_strdup_printf("%s_%s", language, country);
        copyReceivedText(s_locale, joined, sizeof s_locale);
    } else {
        vyxLog(LOG_DEBUG, "%s: locale not found, use en_us", self);
        g_strlcpy(s_locale, "en_us", sizeof s_locale);
    }
    s_queryStatus[SI_LOCALE] = QUERY_OBTAINED;
    restartExitTimer(EXIT_TIMER_LONG_MS);
    prvCompletionCheck(self);
    return true;
}

bool serverUrlCB(BusHandle *, BusMessage *reply, void *) {
    static const char self[] = "serverUrlCB";
    JsonTree root = prvKSMessageGetPayloadJSON(reply);
    if (!prvReplyWanted(root.get(), SI_SERVER_URL, s_serverUrl, self))
        return true;
    const char *serverUrl = prvMemberText(root.get(), "serverUrl", self);
    if (serverUrl) {
        vyxLog(LOG_DEBUG, "%s: payload %s", self, logText(KSMessageGetPayload(reply)));
        copyReceivedText(s_serverUrl, serverUrl, sizeof s_serverUrl);
        s_queryStatus[SI_SERVER_URL] = QUERY_OBTAINED;
        restartExitTimer(EXIT_TIMER_LONG_MS);
        prvCompletionCheck(self);
        return true;
    }
    vyxLog(LOG_DEBUG, "%s: serverUrl not found: ERROR", self);
    prvSendCheckIfFileDownloadWaits();
    s_queryStatus[SI_SERVER_URL] = QUERY_NOT_OBTAINED;
    s_serverUrl[0] = '\0';
    s_tValidAccountTokens = 0;
    bool ended = isAllSystemInfoRequestsEnded(self);
    if (ended || isRunLocalFileDownload())
        sendDownloadErrorResponse(self);
    return true;
}
