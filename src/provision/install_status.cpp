#include "provision/install_status.h"

#include <glib.h>
#include <stdlib.h>
#include <string.h>

#include "common/json_access.h"
#include "monitors/connmgr.h"
#include "platform/host.h"
#include "platform/log.h"
#include "provision/install.h"
#include "provision/run.h"
#include "provision/run_state.h"
#include "service/app_control.h"
#include "service/service.h"
#include "status/run_record.h"

constexpr unsigned PROGRESS_TABLE_STEP = 10;
constexpr size_t PROGRESS_ID_MAX = 255;
constexpr int MSG_COUNTDOWN = 3;
constexpr int MSG_COUNTDOWN_AFTER_END = 15;
constexpr int64_t MSG_INTERVAL_SECS = 5;

static InstallProgressEntry *s_InstallProgress = nullptr;
static unsigned s_CountInstallElements = 0;
static unsigned s_MaxInstallElements = 0;
static unsigned s_uLastInstallPercent = 0;

// ---------------------------------------------------------------------------------------------
// The accepted installs

static bool isFinished(const char *entry) {
    return entry[0] == '\t' || entry[0] == '\0';
}

// Marking overwrites the id's first character, so later reports of it no longer match.
static void markFinished(unsigned index) {
    s_ppInstallFiles[index][0] = '\t';
    s_InstallFileCompleted++;
}

static int acceptedIndex(const char *id) {
    return prvFindInStringArray(s_ppInstallFiles, static_cast<int>(s_InstallFileCount), id);
}

// The codes of an install the service is still working on.
static bool isInstalling(InstallStatusCode code) {
    return code == INSTALL_ACTIVE || code == INSTALL_DOWNLOADING || code == INSTALL_ICON;
}

static bool walkIsThrough() {
    return s_FileInfoOffset >= static_cast<int>(s_FileCount);
}

bool requestInstallStatus() {
    if (s_bWaitingInstallStatus || s_InstallFileCompleted >= s_InstallFileCount)
        return true;
    s_bWaitingInstallStatus = true;
    return callService("requestInstallStatus", INSTALL_SERVICE_STATUS, "{}", installStatusCB);
}

// ---------------------------------------------------------------------------------------------
// State texts and the progress table

static bool endsWith(const char *text, const char *suffix) {
    return g_str_has_suffix(text, suffix);
}

static bool beginsWithNoCase(const char *text, const char *prefix) {
    return g_ascii_strncasecmp(text, prefix, strlen(prefix)) == 0;
}

InstallStatusCode getStatusInstallService(const char *state, const char *progress,
                                          unsigned *progressOut) {
    static const char *const self = "getStatusInstallService";
    if (!state || !*state || !progress) {
        vyxLog(LOG_ERR, "%s: Invalid code passed", self);
        return INSTALL_INVALID;
    }
    vyxLog(LOG_DEBUG, "%s: state: '%s', progress: %s", self, state, progress);
    InstallStatusCode code;
    if (endsWith(state, "failed"))
        code = INSTALL_FAILED;
    else if (endsWith(state, "canceled"))
        code = INSTALL_CANCELED;
    else if (endsWith(state, "paused"))
        code = INSTALL_PAUSED;
    else if (beginsWithNoCase(state, "icon"))
        code = INSTALL_ICON;
    else if (beginsWithNoCase(state, "remov"))
        code = endsWith(state, "ed") ? INSTALL_REMOVED : INSTALL_REMOVING;
    else if (endsWith(state, "ed"))
        code = INSTALL_DONE;
    else if (endsWith(state, "ing"))
        code = INSTALL_ACTIVE;
    else if (strstr(state, "ipk download current"))
        code = INSTALL_DOWNLOADING;
    else {
        code = INSTALL_UNKNOWN;
        vyxLog(LOG_ERR, "%s: Unknown status code: '%s'", self, state);
    }
    if (progressOut) {
        if (code == INSTALL_ICON) {
            *progressOut = 0;
            return code;
        }
        *progressOut = code >= INSTALL_DOWNLOADING && *progress
                           ? static_cast<unsigned>(strtoul(progress, nullptr, 10))
                           : 100;
    }
    if (code == INSTALL_CANCELED || code == INSTALL_PAUSED || code == INSTALL_FAILED ||
        code == INSTALL_UNKNOWN) {
        if (getConnectionStatus(false) != 1)
            vyxLog(LOG_ALERT, "%s: Error '%s' with Comms Connection down", self, state);
    }
    return code;
}

void addToInstallProgressTable(const char *id, uint32_t size) {
    static const char *const self = "addToInstallProgressTable";
    if (!id || !*id || strlen(id) > PROGRESS_ID_MAX || size == 0) {
        vyxLog(LOG_DEBUG, "%s: Parameter error", self);
        return;
    }
    vyxLog(LOG_DEBUG, "%s: Package Id: %s, size: %d", self, id, size);
    if (s_CountInstallElements >= s_MaxInstallElements) {
        if (s_CountInstallElements > s_MaxInstallElements)
            vyxLog(LOG_ALERT, "%s: Mismatch found between count of %d and maximum of %d", self,
                   s_CountInstallElements, s_MaxInstallElements);
        s_MaxInstallElements += PROGRESS_TABLE_STEP;
        s_InstallProgress = g_renew(InstallProgressEntry, s_InstallProgress, s_MaxInstallElements);
        vyxLog(LOG_DEBUG, "%s: Array expanded to %d elements", self, s_MaxInstallElements);
    }
    InstallProgressEntry &entry = s_InstallProgress[s_CountInstallElements];
    g_strlcpy(entry.id, id, sizeof entry.id);
    entry.size = size;
    entry.percent = 0;
    entry.state = INSTALL_UNKNOWN;
    entry.seen = false;
    vyxLog(LOG_DEBUG, "%s: '%s' added to install progress table, entry #%d", self, id,
           s_CountInstallElements);
    s_CountInstallElements++;
}

static unsigned percentOf(InstallStatusCode code, unsigned progress) {
    switch (code) {
    case INSTALL_DONE:
    case INSTALL_CANCELED:
    case INSTALL_FAILED:
        return 100;
    case INSTALL_ACTIVE:
        return 95;
    case INSTALL_ICON:
        return 2;
    case INSTALL_DOWNLOADING:
        // The download is most of an install; the rest is the install itself.
        return progress <= 5 ? 4 : progress >= 99 ? 92 : progress * 92 / 100;
    default:
        return 0;
    }
}

bool updateInstallProgressTable(const char *id, InstallStatusCode code, unsigned progress) {
    static const char *const self = "updateInstallProgressTable";
    if (!id || !*id || strlen(id) > PROGRESS_ID_MAX)
        return false;
    for (unsigned i = 0; i < s_CountInstallElements; i++) {
        InstallProgressEntry &entry = s_InstallProgress[i];
        if (strcmp(entry.id, id) != 0)
            continue;
        entry.state = code;
        entry.seen = true;
        entry.percent = percentOf(code, progress);
        runRecordInstallProgress(id, code, entry.percent);
        vyxLog(LOG_DEBUG, "%s: '%s' progress: %d%%", self, id, entry.percent);
        return true;
    }
    vyxLog(LOG_DEBUG, "%s: '%s' not found in table", self, id);
    return false;
}

unsigned computeInstallPercent() {
    uint64_t total = 0;
    uint64_t done = 0;
    for (unsigned i = 0; i < s_CountInstallElements; i++) {
        const InstallProgressEntry &entry = s_InstallProgress[i];
        total += entry.size;
        if (entry.percent >= 100)
            done += entry.size;
        else if (entry.percent > 0)
            done += entry.size / 100 * entry.percent;
    }
    unsigned percent = 0;
    if (s_CountInstallElements && total && done) {
        if (done + 1 < total) {
            percent =
                static_cast<unsigned>(done > 999999 ? done / (total / 100) : done * 100 / total);
            vyxLog(LOG_DEBUG, "%s: %d percent complete with %d items", "computeInstallPercent",
                   percent, s_CountInstallElements);
        } else {
            percent = 100;
        }
    }
    if (percent > s_uLastInstallPercent)
        restartExitTimer(EXIT_TIMER_LONG_MS);
    s_uLastInstallPercent = percent;
    return percent;
}

void resetDownloadFileProgress() {
    g_clear_pointer(&s_InstallProgress, g_free);
    s_CountInstallElements = 0;
    s_MaxInstallElements = 0;
}

// ---------------------------------------------------------------------------------------------
// The status replies

static void sendProgressWhenDue() {
    s_InstallMsgCountDown--;
    if (s_InstallMsgCountDown > 0 && hostNowSeconds() - s_LastMsgSecs <= MSG_INTERVAL_SECS)
        return;
    g_autofree char *percent = g_strdup_printf("%u", computeInstallPercent());
    launchVYXCoreMessage(POPUP_CONTINUE_INSTALL, nullptr, percent);
    s_InstallMsgCountDown = MSG_COUNTDOWN;
    s_LastMsgSecs = hostNowSeconds();
}

// The next step once every accepted install has been heard of, or more waiting.
static void finishedOrWait(int failType) {
    if (s_InstallFileCompleted < s_InstallFileCount || !walkIsThrough())
        restartStatusTimer();
    else
        processEndPackageInfo(failType, "installStatusCB");
}

static void singleFormStatus(const JsonNode *root, const char *payload) {
    static const char *const logName = "installStatusCB";
    vyxLog(LOG_DEBUG, "%s: Simple status: %s", logName, payload);
    const char *id = labelText(json_find_first_label(root, "id"));
    const JsonNode *details = json_find_first_label(root, "details");
    int index = acceptedIndex(id);
    if (index < 0 || !details || !details->child || !details->child->child) {
        restartStatusTimer();
        return;
    }
    unsigned progress = 0;
    InstallStatusCode code = getStatusInstallService(getJsonString(details, "state"),
                                                     getJsonString(details, "progress"), &progress);
    updateInstallProgressTable(id, code, progress);
    if (isInstalling(code)) {
        restartExitTimer(EXIT_TIMER_LONG_MS);
        restartStatusTimer();
        return;
    }
    switch (code) {
    case INSTALL_CANCELED:
    case INSTALL_FAILED:
        markFinished(static_cast<unsigned>(index));
        finishedOrWait(FAIL_INSTALL);
        return;
    case INSTALL_REMOVING:
    case INSTALL_REMOVED:
        vyxLog(LOG_DEBUG, "%s: Deleted state for %s", logName, id);
        s_bSetRebootAtEnd = true;
        break;
    case INSTALL_DONE:
        break;
    default:
        vyxLog(LOG_DEBUG, "%s: Unexpected state: %s", logName, payload);
        processEndPackageInfo(FAIL_INSTALL, logName);
        return;
    }
    markFinished(static_cast<unsigned>(index));
    finishedOrWait(FAIL_NONE);
}

// The list form as one ";"-joined text of "id<TAB>state<TAB>progress" entries.
static char *createInstallStatusList(const JsonNode *status, const char *payload,
                                     unsigned *entries) {
    static const char *const self = "createInstallStatusList";
    const JsonNode *apps = json_find_first_label(status->child, "apps");
    char *list = nullptr;
    int marker = 0;
    *entries = 0;
    if (!apps) {
        vyxLog(LOG_ERR, "%s: 'apps' node not found: %s", self, payload);
    } else {
        const JsonNode *array = apps->child;
        vyxLog(LOG_DEBUG, "%s: status array: %s", self, payload);
        vyxLog(LOG_DEBUG,
               "createInstallStatusList: 1) jApps: %s, jApps->child: %s, jApps->child->child: %s",
               decodeJsonObjectType(apps), decodeJsonObjectType(array),
               decodeJsonObjectType(array ? array->child : nullptr));
        for (const JsonNode *app = array && array->type == JSON_ARRAY ? array->child : nullptr; app;
             app = app->next) {
            const JsonNode *details = json_find_first_label(app, "details");
            const JsonNode *object = details ? details->child : nullptr;
            g_autofree char *entry =
                g_strdup_printf("%s\t%s\t%s", labelText(json_find_first_label(app, "id")),
                                labelText(json_find_first_label(object, "state")),
                                labelText(json_find_first_label(object, "progress")));
            prvStrAppend(&list, entry);
            (*entries)++;
        }
        marker = *entries ? static_cast<int>(*entries) + 2 : 1;
    }
    vyxLog(LOG_DEBUG, "createInstallStatusList: %d) %d Install status list: %s", marker, *entries,
           list ? list : "");
    return list;
}

static bool inList(StrArray ids, const char *id) {
    return ids && prvFindInStringArray(ids, static_cast<int>(g_strv_length(ids)), id) >= 0;
}

// How many installs are still in process; marks the ones that no longer are.
static unsigned countInstallsInProcess(const char *statusList) {
    static const char *const self = "countInstallsInProcess";
    vyxLog(LOG_DEBUG, "%s: started %s", self, statusList);
    g_auto(GStrv) entries = g_strsplit(statusList, getStringSeparator(), -1);
    g_autofree char *inProcess = nullptr;
    unsigned inProcessCount = 0;
    unsigned failed = 0;
    for (char **entry = entries; *entry && **entry; entry++) {
        g_auto(GStrv) fields = g_strsplit(*entry, "\t", 3);
        int index = acceptedIndex(fields[0]);
        if (index < 0 || !fields[1]) {
            vyxLog(LOG_DEBUG, "%s: App '%s' not matched", self, fields[0]);
            continue;
        }
        unsigned progress = 0;
        InstallStatusCode code =
            getStatusInstallService(fields[1], fields[2] ? fields[2] : "", &progress);
        vyxLog(LOG_DEBUG, "%s: App '%s' matched, im:%d", self, fields[0], code);
        updateInstallProgressTable(fields[0], code, progress);
        if (isInstalling(code)) {
            inProcessCount++;
            prvStrAppend(&inProcess, fields[0]);
            continue;
        }
        switch (code) {
        case INSTALL_DONE:
            markFinished(static_cast<unsigned>(index));
            break;
        case INSTALL_REMOVING:
        case INSTALL_REMOVED:
            vyxLog(LOG_DEBUG, "%s: Deleted state for %s", self, fields[0]);
            s_bSetRebootAtEnd = true;
            markFinished(static_cast<unsigned>(index));
            break;
        case INSTALL_CANCELED:
        case INSTALL_FAILED:
            failed++;
            break;
        default:
            vyxLog(LOG_DEBUG, "%s: App '%s' unexpected mode:%d", self, fields[0], code);
        }
    }

    unsigned active = inProcessCount;
    for (unsigned i = 0; i < s_CountInstallElements; i++)
        active += s_InstallProgress[i].seen ? 0 : 1;

    g_auto(GStrv) inProcessIds =
        inProcess ? g_strsplit(inProcess, getStringSeparator(), -1) : nullptr;
    bool nothingInstalling = active == 0 || !inProcess;
    if (nothingInstalling && failed == 0 && s_InstallFileCount > 0) {
        launchVYXCoreMessage(POPUP_END_INSTALL, nullptr, nullptr);
        s_InstallMsgCountDown = MSG_COUNTDOWN_AFTER_END;
    }
    // A reply that outlived its walk is counted as accepted without a name: the count may
    // exceed the list, which may even be absent.
    for (unsigned i = 0; s_ppInstallFiles && i < s_InstallFileCount && s_ppInstallFiles[i]; i++) {
        const char *id = s_ppInstallFiles[i];
        if (isFinished(id) || (!nothingInstalling && inList(inProcessIds, id)))
            continue;
        vyxLog(LOG_DEBUG,
               nothingInstalling ? "%s: '%s' on install list but nothing is being installed"
                                 : "%s: '%s' on install list and not being installed",
               self, id);
        markFinished(i);
    }
    vyxLog(LOG_DEBUG, "%s: %d Installs in process: %s", self, active, inProcess ? inProcess : "");
    return active;
}

static void noMoreInstalls(const char *statusList) {
    vyxLog(LOG_DEBUG, "%s: No more installs in process, don't restart timer: %s", "installStatusCB",
           statusList ? statusList : "");
    for (unsigned i = 0; i < s_CountInstallElements; i++) {
        InstallProgressEntry &entry = s_InstallProgress[i];
        if (!entry.seen || isInstalling(entry.state))
            entry.state = INSTALL_DONE;
    }
    processEndPackageInfo(FAIL_NONE, "installStatusCB");
}

bool installStatusCB(BusHandle *, BusMessage *reply, void *) {
    static const char *const self = "installStatusCB";
    s_bWaitingInstallStatus = false;
    JsonTree root = prvKSMessageGetPayloadJSON(reply);
    if (ignoreJsonResponse(root.get(), self))
        return true;
    const char *payload = logText(KSMessageGetPayload(reply));
    const JsonNode *status =
        root && root->type == JSON_OBJECT ? json_find_first_label(root.get(), "status") : nullptr;
    const JsonNode *id =
        root && root->type == JSON_OBJECT ? json_find_first_label(root.get(), "id") : nullptr;
    if (!status && !id) {
        vyxLog(LOG_ERR, "%s: Status request failed: %s", self, payload);
        processEndPackageInfo(FAIL_INSTALL, self);
        return true;
    }
    sendProgressWhenDue();
    if (id) {
        singleFormStatus(root.get(), payload);
        return true;
    }
    unsigned entries = 0;
    g_autofree char *statusList = createInstallStatusList(status, payload, &entries);
    if (entries && countInstallsInProcess(statusList) > 0) {
        restartStatusTimer();
        return true;
    }
    noMoreInstalls(statusList);
    return true;
}

// The install half of the status timer: ask again, unless a request is out or all is done.
void installStatusTimerFired() {
    static const char *const logName = "statusTimerCB";
    if (s_bWaitingInstallStatus) {
        vyxLog(LOG_DEBUG, "%s: Status timer fired, but ignored as request is in process", logName);
        return;
    }
    stopStatusTimer(getStatusTimer());
    if (s_InstallFileCompleted < s_InstallFileCount) {
        requestInstallStatus();
        return;
    }
    vyxLog(LOG_DEBUG, "%s: Status timer fired, but install has completed", logName);
    releaseCurlHandle(logName);
    processEndPackageInfo(FAIL_NONE, logName);
}
