#include "provision/config.h"

#include <glib.h>
#include <string.h>

#include <string>

#include "common/files.h"
#include "common/json_access.h"
#include "common/texts.h"
#include "platform/log.h"
#include "platform/paths.h"
#include "provision/run_state.h"
#include "service/demo_state.h"
#include "store/app_listing.h"
#include "sysinfo/download_info.h"

// Tried in this order; the first that qualifies rules the whole run.
static const char *const s_configFiles[] = {DYNAMIC_CONFIG_FILE, CARRIER_CONFIG_FILE,
                                            DEFAULT_CONFIG_FILE};

static GKeyFile *prvImportKeyFile(const char *path, const char *group) {
    std::string rooted = vyxPath(path);
    if (!g_file_test(rooted.c_str(), G_FILE_TEST_EXISTS))
        return nullptr;
    GKeyFile *keyFile = g_key_file_new();
    if (!g_key_file_load_from_file(keyFile, rooted.c_str(), G_KEY_FILE_NONE, nullptr)) {
        g_key_file_free(keyFile);
        return nullptr;
    }
    if (!g_key_file_has_group(keyFile, group)) {
        vyxLog(LOG_ERR, "%s: Can't find group [%s] in conf file [%s]", "prvImportKeyFile", group,
               path);
        g_key_file_free(keyFile);
        return nullptr;
    }
    return keyFile;
}

// Reads a list key into a StrArray of trimmed items; false when the key can't be read.
static bool readList(GKeyFile *keyFile, const char *key, StrArray *list, unsigned *count,
                     GError **error) {
    freeStrArray(list);
    *count = 0;
    gsize length = 0;
    *list = g_key_file_get_string_list(keyFile, CONFIG_GROUP, key, &length, error);
    if (!*list)
        return false;
    for (gsize i = 0; i < length; i++)
        g_strstrip((*list)[i]);
    *count = static_cast<unsigned>(length);
    return true;
}

// Puts a package the demonstration can't do without on the install list, once.
static void addRequiredPackage(const char *packageId) {
    if (!*packageId ||
        (s_FileCount && prvFindInStringArray(s_ppFiles, s_FileCount, packageId) >= 0))
        return;
    prvStrArrayAppend(&s_ppFiles, packageId);
    s_FileCount++;
    vyxLog(LOG_DEBUG, "%s: %s added to file list", "loadDownloadFileList", packageId);
    s_FileInfoOffset = -1;
}

bool loadDownloadFileList() {
    static const char *const self = "loadDownloadFileList";
    s_bUseOnRamp = true;
    s_bSetRebootAtEnd = false;
    vyxLog(LOG_DEBUG, "%s: Started", self);

    GKeyFile *keyFile = nullptr;
    for (const char *path : s_configFiles) {
        keyFile = prvImportKeyFile(path, CONFIG_GROUP);
        if (keyFile) {
            s_KeyFilename = path;
            break;
        }
    }

    bool result = false;
    if (!keyFile) {
        vyxLog(LOG_ERR, "%s: Couldn't find any conf files", self);
        freeStrArray(&s_ppFiles);
        freeStrArray(&s_ppOptionalFiles);
        s_FileCount = 0;
        s_OptionalFileCount = 0;
    } else {
        g_autoptr(GError) error = nullptr;
        if (!readList(keyFile, "INSTALL", &s_ppFiles, &s_FileCount, &error)) {
            if (error && error->message)
                vyxLog(LOG_ERR, "%s: error getting %s list from conf file: %s", self, "INSTALL",
                       error->message);
            else
                vyxLog(LOG_ERR, "%s: error getting IPKG list from conf file.", self);
            freeStrArray(&s_ppOptionalFiles);
            s_OptionalFileCount = 0;
        } else {
            vyxLog(LOG_DEBUG, "%s: key has %d files for key %s", self, s_FileCount, "INSTALL");
            s_FileInfoOffset = -1;
            s_bHasWhiteList = g_key_file_has_key(keyFile, CONFIG_GROUP, "WHITELIST", nullptr);
            readList(keyFile, "WHITELIST", &s_ppOptionalFiles, &s_OptionalFileCount, nullptr);
            vyxLog(LOG_DEBUG, "%s: key has %d files for key %s", self, s_OptionalFileCount,
                   "WHITELIST");
            if (!s_bHasWhiteList &&
                g_key_file_has_key(keyFile, CONFIG_GROUP, "PURGELIST", nullptr)) {
                readList(keyFile, "PURGELIST", &s_ppPurgeFiles, &s_PurgeFileCount, nullptr);
                vyxLog(LOG_DEBUG, "%s: key has %d files for key %s", self, s_PurgeFileCount,
                       "PURGELIST");
            }
            result = true;
        }
        if (g_key_file_has_key(keyFile, CONFIG_GROUP, "SKIPONRAMP", nullptr) &&
            g_key_file_get_boolean(keyFile, CONFIG_GROUP, "SKIPONRAMP", nullptr)) {
            vyxLog(LOG_DEBUG, "%s: OnRamp lookup suppressed: Key found", self);
            s_bUseOnRamp = false;
        }
        g_key_file_free(keyFile);
    }

    // Whatever the files say, a run brings the demonstration application and its video.
    char appId[101] = {};
    char packageId[101] = {};
    getCurrentVyxApp(appId, nullptr);
    getPackageFromApp(packageId, appId, sizeof packageId);
    addRequiredPackage(packageId);
    char video[101] = {};
    getVyxVideoName(video);
    addRequiredPackage(video);
    return result;
}

bool getCurrentVyxApp(char *appId, bool *reboot) {
    vyxLog(LOG_DEBUG, "%s: Started", "getCurrentVyxApp");
    if (reboot)
        *reboot = false;
    if (appId)
        g_strlcpy(appId, DEFAULT_VYX_APP_ID, 101);
    if (!s_KeyFilename)
        return false;
    g_autoptr(GKeyFile) keyFile = g_key_file_new();
    std::string path = vyxPath(s_KeyFilename);
    if (!g_key_file_load_from_file(keyFile, path.c_str(), G_KEY_FILE_NONE, nullptr))
        return false;
    if (reboot && g_key_file_has_key(keyFile, CONFIG_GROUP, "REBOOT", nullptr))
        *reboot = g_key_file_get_boolean(keyFile, CONFIG_GROUP, "REBOOT", nullptr);
    g_autofree char *run = g_key_file_get_string(keyFile, CONFIG_GROUP, "RUN", nullptr);
    if (!run || !*run || !appId)
        return false;
    copyReceivedText(appId, run, 100);
    return true;
}

const char *getDynamicConfigFileName() {
    return DYNAMIC_CONFIG_FILE;
}

// Which of the listed packages the user installed and neither list keeps.
void createDeleteList() {
    static const char *const self = "createDeleteList";
    vyxLog(LOG_DEBUG, "%s: create initial delete list", "startFileDownload");
    if (!s_bHasWhiteList) {
        vyxLog(LOG_DEBUG, "%s: No whitelist key in 'conf' file, therefore don't delete anything",
               self);
        return;
    }
    JsonTree root = jsonParse(getPkgListJSON());
    const JsonNode *apps =
        root ? findListingPackages(root.get(), ListingMembers::Apps, self) : nullptr;
    if (!apps || !apps->child || !apps->child->child) {
        vyxLog(LOG_DEBUG, "%s: Installed package list is not found", self);
        return;
    }
    vyxLog(LOG_DEBUG, "%s: Started", self);
    g_autofree char *joined = nullptr;
    unsigned count = 0;
    for (const JsonNode *app = apps->child->child; app; app = app->next) {
        const char *packageId = nullptr;
        if (!isUserInstalledPackage(app, self, &packageId, nullptr))
            continue;
        if (prvFindInStringArray(s_ppFiles, s_FileCount, packageId) >= 0) {
            vyxLog(LOG_DEBUG, "%s: userInstalled package [%s] found in 'install' list", self,
                   packageId);
        } else if (prvFindInStringArray(s_ppOptionalFiles, s_OptionalFileCount, packageId) >= 0) {
            vyxLog(LOG_DEBUG, "%s: userInstalled package [%s] found in 'whitelist'", self,
                   packageId);
        } else {
            vyxLog(LOG_DEBUG, "%s: userInstalled package [%s] added to delete list", self,
                   packageId);
            prvStrAppend(&joined, packageId);
            count++;
        }
    }
    vyxLog(LOG_DEBUG, "%s: packages [%s]", self, joined ? joined : "");
    freeStrArray(&s_ppPurgeFiles);
    s_PurgeFileCount = 0;
    if (count) {
        s_ppPurgeFiles = g_strsplit(joined, getStringSeparator(), -1);
        s_PurgeFileCount = count;
    }
}

void loadProfileFilesList(const char *text) {
    freeStrArray(&s_ppProfileFiles);
    if (text && *text)
        s_ppProfileFiles = g_strsplit(text, getStringSeparator(), -1);
}

void clearProfileFilesList() {
    freeStrArray(&s_ppProfileFiles);
}

int updateFileListFromProfile() {
    static const char *const self = "updateFileListFromProfile";
    if (!s_ppProfileFiles || !*s_ppProfileFiles)
        return 0;
    int added = 0;
    for (char **profile = s_ppProfileFiles; *profile; profile++) {
        if (prvFindInStringArray(s_ppFiles, s_FileCount, *profile) >= 0)
            continue;
        if (prvStrArrayAppend(&s_ppFiles, *profile) && **profile) {
            s_FileCount++;
            added++;
        }
    }
    vyxLog(LOG_DEBUG, "%s: %d files added", self, added);

    if (!s_PurgeFileCount || !s_ppPurgeFiles)
        return added;
    unsigned profiled = g_strv_length(s_ppProfileFiles);
    int skipped = 0;
    unsigned kept = 0;
    g_autofree char *remaining = nullptr;
    for (unsigned i = 0; i < s_PurgeFileCount && s_ppPurgeFiles[i]; i++) {
        if (prvFindInStringArray(s_ppProfileFiles, profiled, s_ppPurgeFiles[i]) >= 0) {
            skipped++;
        } else if (*s_ppPurgeFiles[i]) {
            prvStrAppend(&remaining, s_ppPurgeFiles[i]);
            kept++;
        }
    }
    if (!skipped)
        return added;
    vyxLog(LOG_DEBUG, "%s: Skip %d of previous deletes, now delete: %s", self, skipped,
           remaining ? remaining : "");
    freeStrArray(&s_ppPurgeFiles);
    s_PurgeFileCount = 0;
    if (remaining) {
        s_ppPurgeFiles = g_strsplit(remaining, getStringSeparator(), -1);
        s_PurgeFileCount = kept;
    }
    return added;
}

bool updateDeleteListFromProfile(StrArray names, unsigned count) {
    static const char *const self = "updateDeleteListFromProfile";
    if (!names || !count)
        return false;
    int added = 0;
    g_autofree char *joined = nullptr;
    for (unsigned i = 0; i < count && names[i]; i++) {
        if (prvFindInStringArray(s_ppFiles, s_FileCount, names[i]) >= 0 ||
            prvFindInStringArray(s_ppOptionalFiles, s_OptionalFileCount, names[i]) >= 0)
            continue;
        if (prvStrArrayAppend(&s_ppPurgeFiles, names[i]) && *names[i]) {
            s_PurgeFileCount++;
            added++;
            prvStrAppend(&joined, names[i]);
        }
    }
    if (added)
        vyxLog(LOG_DEBUG, "%s: %d files added to delete list: %s", self, added, joined);
    else
        vyxLog(LOG_DEBUG, "%s: No extra files added to delete list", self);
    return true;
}
