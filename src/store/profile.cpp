#include "store/profile.h"

#include <glib.h>
#include <glib/gstdio.h>

#include "common/json_access.h"
#include "platform/log.h"
#include "platform/paths.h"
#include "provision/config.h"
#include "provision/install.h"
#include "service/service.h"
#include "store/transfer.h"
#include "sysinfo/sysinfo.h"

#define PROFILE_BODY_FORMAT                                                                        \
    "{'InGetUserAppsV2':{'accountTokenInfo':{'token':'%s','deviceId':'%s','email':'%s',"           \
    "'carrier':'%s'}, 'locale':'%s'} }"

static char *s_outgoingProfileData = nullptr;
static uint32_t s_profileDataOffset = 0;
static char *s_incomingProfileData = nullptr;

// ---------------------------------------------------------------------------------------------
// Transfer callbacks: the profile is asked once a run, so they keep quiet.

static size_t write_data(char *ptr, size_t size, size_t nmemb, void *) {
    size_t n = size * nmemb;
    if (n == 0) {
        vyxLog(LOG_DEBUG, "%s: Called with zero size [%d] or memb [%d]", "write_data", (int)size,
               (int)nmemb);
        return 0;
    }
    if (ptr)
        storeAppendReply(&s_incomingProfileData, storeCopyChunk(ptr, n));
    return n;
}

static size_t read_data(char *buffer, size_t size, size_t nitems, void *) {
    if (!s_outgoingProfileData)
        return 0;
    return storeReadBody(s_outgoingProfileData, &s_profileDataOffset, buffer, size * nitems);
}

static size_t httpHeader(char *, size_t size, size_t nitems, void *) {
    return size * nitems;
}

static int debug_callback(CURL *, curl_infotype type, char *data, size_t size, void *) {
    g_autofree char *copy = data ? g_strndup(data, size) : nullptr;
    vyxLog(LOG_DEBUG, "CurlCallback, type:%s, msg:%s", decodeCurlInfoType(type), logText(copy));
    return 0;
}

// ---------------------------------------------------------------------------------------------
// Profile query

// The profile's package ids joined with ";"; null when it names none. count: elements looked at.
static char *prvProfilePackages(const JsonNode *userApps, int *count, bool *understood) {
    static const char logName[] = "parseBazaroProfileResponse";
    char *packages = nullptr;
    *count = 0;
    *understood = true;
    if (userApps->type == JSON_ARRAY) {
        vyxLog(LOG_DEBUG, "%s: userApps element exists and has type array", logName);
        for (const JsonNode *app = userApps->child; app; app = app->next, ++*count) {
            vyxLog(LOG_DEBUG, "%s: Array element [%d] has type [%s] [%s]", logName, *count,
                   decodeJsonObjectType(app), decodeJsonObjectType(app->child));
            const JsonNode *id = prvJsonFindFirstLabel(app, "publicApplicationId", logName);
            if (id && id->child)
                prvStrAppend(&packages, id->child->text);
            else
                vyxLog(LOG_ALERT,
                       "%s: Array element [%d] doesn't have a 'publicApplicationId' element: %s",
                       logName, *count + 1, s_incomingProfileData);
        }
    } else if (userApps->type == JSON_OBJECT) {
        vyxLog(LOG_DEBUG, "%s: 'userApps' element has type: object", logName);
        const JsonNode *id = prvJsonFindFirstLabel(userApps, "publicApplicationId", logName);
        if (id && id->child) {
            prvStrAppend(&packages, id->child->text);
            *count = 1;
        }
    } else {
        vyxLog(LOG_DEBUG, "%s: 'userApps' element has unexpected type [%s]", logName,
               decodeJsonObjectType(userApps));
        *understood = false;
    }
    return packages;
}

static bool parseBazaroProfileResponse() {
    static const char self[] = "parseBazaroProfileResponse";
    if (!s_incomingProfileData) {
        vyxLog(LOG_ERR, "%s: Reply is NULL, can't process", self);
        return false;
    }
    vyxLog(LOG_DEBUG, "%s: %s", self, s_incomingProfileData);
    // Whatever the reply says, an earlier profile must not survive it.
    clearProfileFilesList();
    JsonTree root = jsonParse(s_incomingProfileData);
    const JsonNode *out = prvJsonFindFirstLabel(root.get(), "OutGetUserInstalledAppsV2", self);
    const JsonNode *exception = prvJsonFindFirstLabel(root.get(), "JSONException", self);

    if (out && out->child) {
        const JsonNode *value = out->child;
        vyxLog(LOG_DEBUG, "%s: Top element exists and has type [%s][%s][%s]", self,
               decodeJsonObjectType(out), decodeJsonObjectType(value),
               decodeJsonObjectType(value->child));
        if (value->type != JSON_OBJECT) {
            vyxLog(LOG_DEBUG, "%s: No applications in the profile: %s", self,
                   s_incomingProfileData);
            return true;
        }
        restartExitTimer(EXIT_TIMER_LONG_MS);
        vyxLog(LOG_DEBUG, "%s: About to get 'userApps' element", self);
        const JsonNode *userApps = prvJsonFindFirstLabel(value, "userApps", self);
        if (!userApps || !userApps->child) {
            vyxLog(LOG_DEBUG, "%s: Couldn't find 'userApps' element : %s", self,
                   s_incomingProfileData);
            return false;
        }
        int count = 0;
        bool understood = true;
        g_autofree char *packages = prvProfilePackages(userApps->child, &count, &understood);
        vyxLog(LOG_DEBUG, "%s: Processed %d URLs, packages: %s", self, count,
               packages ? packages : "<<empty>>");
        if (packages) {
            loadProfileFilesList(packages);
            updateFileListFromProfile();
        } else {
            clearProfileFilesList();
        }
        verifyProfilePackages(packages);
        return understood;
    }
    if (exception) {
        const char *message = getJsonString(exception, "message");
        vyxLog(LOG_ALERT, "%s: %s", self, *message ? message : "Error");
        restartExitTimer(EXIT_TIMER_LONG_MS);
        return true;
    }
    vyxLog(LOG_ALERT, "%s: Malformed reply or invalid reply: %s", self, s_incomingProfileData);
    return false;
}

bool loadProfilePackageList(CURL *handle) {
    static const StoreTransfer transfer = {"loadProfilePackageList",
                                           "getUserInstalledApps_ext2",
                                           write_data,
                                           read_data,
                                           httpHeader,
                                           debug_callback,
                                           &s_outgoingProfileData,
                                           &s_profileDataOffset,
                                           &s_incomingProfileData};
    char *body = g_strdup_printf(PROFILE_BODY_FORMAT, getAccountToken(0), getDeviceId(),
                                 getAccountToken(1), getCarrierId(), getLocale());
    if (!runStoreTransfer(handle, transfer, body))
        return false;
    bool understood = parseBazaroProfileResponse();
    // The run goes on whatever the profile said: the configuration's own packages are still
    // to be installed.
    beginInstallDelete();
    return understood;
}

// ---------------------------------------------------------------------------------------------
// Profile list file

void verifyProfilePackages(const char *profileList) {
    static const char self[] = "verifyProfilePackages";
    std::string path = vyxPath(PROFILE_LIST_FILE);
    if (!g_file_test(path.c_str(), G_FILE_TEST_EXISTS))
        return;
    g_autofree char *saved = nullptr;
    if (!g_file_get_contents(path.c_str(), &saved, nullptr, nullptr)) {
        vyxLog(LOG_DEBUG, "%s: Failed to read file: %s", self, path.c_str());
        return;
    }
    if (!*saved) {
        vyxLog(LOG_DEBUG, "%s: File contents are empty: %s", self, path.c_str());
        return;
    }
    g_autofree char *departed = nullptr;
    if (!profileList) {
        departed = g_strdup(saved);
        vyxLog(LOG_DEBUG, "%s: Delete list: %s", self, departed);
    } else {
        g_auto(GStrv) savedIds = g_strsplit(saved, getStringSeparator(), -1);
        g_auto(GStrv) profileIds = g_strsplit(profileList, getStringSeparator(), -1);
        int profileCount = (int)g_strv_length(profileIds);
        int count = 0;
        for (char **id = savedIds; *id; ++id) {
            if (**id && prvFindInStringArray(profileIds, profileCount, *id) < 0) {
                prvStrAppend(&departed, *id);
                count++;
            }
        }
        vyxLog(LOG_DEBUG, "%s: %d items in delete list: %s", self, count, departed ? departed : "");
    }
    if (!departed)
        return;
    g_auto(GStrv) names = g_strsplit(departed, getStringSeparator(), -1);
    unsigned count = g_strv_length(names);
    if (count > 0)
        updateDeleteListFromProfile(names, count);
}

bool saveProfileFileList(StrArray files) {
    unsigned count = files ? g_strv_length(files) : 0;
    deleteProfileFileList();
    if (count == 0)
        return true;
    g_autofree char *text = g_strjoinv(getStringSeparator(), files);
    std::string path = vyxPath(PROFILE_LIST_FILE);
    if (!g_file_set_contents(path.c_str(), text, -1, nullptr))
        return false;
    vyxLog(LOG_DEBUG, "%s: Saved: %s", "saveProfileFileList", text);
    return true;
}

void deleteProfileFileList() {
    std::string path = vyxPath(PROFILE_LIST_FILE);
    if (g_file_test(path.c_str(), G_FILE_TEST_EXISTS))
        g_unlink(path.c_str());
}
