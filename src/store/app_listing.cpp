#include "store/app_listing.h"

#include <glib.h>
#include <string.h>

#include "common/json_access.h"
#include "common/lists.h"
#include "common/version.h"
#include "platform/log.h"
#include "provision/download.h"
#include "service/service.h"
#include "store/app_detail.h"

// Where the platform puts applications the user installed, as the listing writes it.
#define USER_APPS_ICON_PREFIX "\\/media\\/cryptofs\\/apps\\/usr\\/velto\\/"
#define FIND_APPS_ID "com.velto.app.findapps"

static char *s_pkgListJSONPayload = nullptr;
static char *s_StartingPkgListJSONPayload = nullptr;

const JsonNode *findListingPackages(const JsonNode *root, ListingMembers members,
                                    const char *caller) {
    bool orPackages = members == ListingMembers::AppsOrPackages;
    if (caller) {
        const JsonNode *apps = prvJsonFindFirstLabel(root, "apps", caller);
        return apps || !orPackages ? apps : prvJsonFindFirstLabel(root, "packages", caller);
    }
    if (!root || root->type != JSON_OBJECT)
        return nullptr;
    const JsonNode *apps = json_find_first_label(root, "apps");
    return apps || !orPackages ? apps : json_find_first_label(root, "packages");
}

static const JsonNode *listingPackages(const JsonNode *root) {
    return findListingPackages(root, ListingMembers::AppsOrPackages, nullptr);
}

static bool cacheListing(BusMessage *reply, const JsonNode *root) {
    if (!listingPackages(root)) {
        if (!ignoreJsonResponse(root, "listPkgsCB"))
            vyxLog(LOG_DEBUG, "%s: invalid response - no apps listed", "listPkgsCB");
        return false;
    }
    g_free(s_pkgListJSONPayload);
    s_pkgListJSONPayload = g_strdup(KSMessageGetPayload(reply));
    vyxLog(LOG_DEBUG, "%s: %s", "listPkgsCB", s_pkgListJSONPayload);
    return true;
}

bool listPkgsCB(BusHandle *, BusMessage *reply, void *) {
    JsonTree root = prvKSMessageGetPayloadJSON(reply);
    cacheListing(reply, root.get());
    return true;
}

bool listPkgsCBRun(BusHandle *, BusMessage *reply, void *) {
    JsonTree root = prvKSMessageGetPayloadJSON(reply);
    if (listingPackages(root.get()))
        vyxLog(LOG_DEBUG, "%s: payload: %s", "listPkgsCBRun", KSMessageGetPayload(reply));
    if (!cacheListing(reply, root.get()))
        return true;
    // The run that starts here parses the listing again as it needs it, within this call.
    root.reset();
    g_free(s_StartingPkgListJSONPayload);
    s_StartingPkgListJSONPayload = g_strdup(KSMessageGetPayload(reply));
    startFileDownload();
    return true;
}

bool isUserInstalledPackage(const JsonNode *app, const char *caller, const char **id,
                            const char **version) {
    const JsonNode *idLabel = prvJsonFindFirstLabel(app, "id", caller);
    const JsonNode *userInstalled = prvJsonFindFirstLabel(app, "userInstalled", caller);
    if (version)
        *version = labelText(prvJsonFindFirstLabel(app, "version", caller));
    const JsonNode *icon = prvJsonFindFirstLabel(app, "icon", caller);
    *id = labelText(idLabel);
    bool user = isJsonObjectTrue(userInstalled);
    if (icon) {
        if (!idLabel)
            return false;
        if (isJsonObjectFalse(userInstalled))
            user = isAppUserInstalled(*id, labelText(icon));
    }
    return user && **id;
}

bool isAppUserInstalled(const char *packageId, const char *icon) {
    if (!icon || !g_str_has_prefix(icon, USER_APPS_ICON_PREFIX) ||
        g_strcmp0(packageId, FIND_APPS_ID) == 0)
        return false;
    vyxLog(LOG_DEBUG, "%s: Override userInstalled flag based on app location, id: %s",
           "isAppUserInstalled", logText(packageId));
    return true;
}

char *createPkgList(const char *listing, bool versioned, unsigned *count, const char *label) {
    char *list = nullptr;
    unsigned found = 0;
    JsonTree root = listing ? jsonParse(listing) : nullptr;
    const JsonNode *apps = listingPackages(root.get());
    for (const JsonNode *app = apps && apps->child ? apps->child->child : nullptr; app;
         app = app->next) {
        const char *packageId = nullptr;
        const char *version = nullptr;
        if (!isUserInstalledPackage(app, "createPkgList", &packageId, &version))
            continue;
        found++;
        g_autofree char *entry =
            versioned ? g_strdup_printf("%s\t%s", packageId, version) : g_strdup(packageId);
        prvStrAppend(&list, entry);
    }
    vyxLog(LOG_DEBUG, "%s/%s: %d user-installed applications: %s", "createPkgList",
           label ? label : "", found, list ? list : "");
    if (count)
        *count = found;
    return list;
}

// The entry of `entries` whose package id (the text before its TAB) is `packageId`.
static const char *findVersionedEntry(StrArray entries, const char *packageId, size_t idLength) {
    for (StrArray entry = entries; entry && *entry; entry++) {
        const char *tab = strchr(*entry, '\t');
        size_t length = tab ? static_cast<size_t>(tab - *entry) : strlen(*entry);
        if (length == idLength && strncmp(*entry, packageId, idLength) == 0)
            return *entry;
    }
    return nullptr;
}

bool listPkgsCBReconcile(BusHandle *, BusMessage *reply, void *) {
    static const char *const self = "listPkgsCBReconcile";
    JsonTree root = prvKSMessageGetPayloadJSON(reply);
    if (ignoreJsonResponse(root.get(), self))
        return true;
    root.reset();

    unsigned startingCount = 0;
    unsigned currentCount = 0;
    g_autofree char *startingList =
        createPkgList(s_StartingPkgListJSONPayload, true, &startingCount, "Starting list");
    g_auto(GStrv) starting =
        startingList ? g_strsplit(startingList, getStringSeparator(), -1) : nullptr;
    g_autofree char *currentList =
        createPkgList(KSMessageGetPayload(reply), true, &currentCount, "Current list");
    g_auto(GStrv) current =
        currentList ? g_strsplit(currentList, getStringSeparator(), -1) : nullptr;
    g_clear_pointer(&s_StartingPkgListJSONPayload, g_free);

    g_autofree char *changed = nullptr;
    unsigned changedCount = 0;
    unsigned available = current ? g_strv_length(current) : 0;
    for (unsigned i = 0; i < currentCount; i++) {
        if (i >= available) {
            vyxLog(LOG_ERR, "%s: NULL element detected at %d of %d", self, i, currentCount);
            continue;
        }
        const char *entry = current[i];
        const char *tab = strchr(entry, '\t');
        bool report = false;
        if (startingCount == 0) {
            report = true;
        } else if (tab && tab != entry) {
            const char *before =
                findVersionedEntry(starting, entry, static_cast<size_t>(tab - entry));
            const char *beforeTab = before ? strchr(before, '\t') : nullptr;
            report = !before || versionCompare(beforeTab ? beforeTab + 1 : "", tab + 1) != 0;
        }
        if (report) {
            prvStrAppend(&changed, entry);
            changedCount++;
        }
    }
    vyxLog(LOG_DEBUG, "%s: %d new/changed applications: %s", self, changedCount,
           changed ? changed : "");
    startupApplication(changed, changedCount, currentList, currentCount);
    restartExitTimer(EXIT_TIMER_LONG_MS);
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
    appDetailMemoryFree();
}
