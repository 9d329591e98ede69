#include "provision/install.h"

#include <glib.h>
#include <string.h>

#include "common/files.h"
#include "common/json_access.h"
#include "monitors/connmgr.h"
#include "platform/host.h"
#include "platform/log.h"
#include "provision/download.h"
#include "provision/install_status.h"
#include "provision/run.h"
#include "provision/run_state.h"
#include "service/app_control.h"
#include "service/service.h"
#include "status/run_record.h"
#include "store/app_detail.h"
#include "store/app_listing.h"
#include "store/profile.h"

#define REMOVE_PAYLOAD_FORMAT "{\"id\":\"%s\"}"

// A reply refuses when it carries a "returnValue" that is not true; anything else accepts.
static bool isRefusal(BusMessage *reply, const char *caller, bool *ignored) {
    JsonTree root = prvKSMessageGetPayloadJSON(reply);
    *ignored = ignoreJsonResponse(root.get(), caller);
    if (*ignored || !root || root->type != JSON_OBJECT)
        return false;
    const JsonNode *returnValue = json_find_first_label(root.get(), "returnValue");
    return returnValue && !isJsonObjectTrue(returnValue);
}

// The list's entry at `offset`, or null past its end (the count never reaches beyond it).
static char *entryAt(StrArray list, unsigned count, int offset) {
    if (!list || offset < 0 || static_cast<unsigned>(offset) >= count)
        return nullptr;
    for (int i = 0; i < offset; i++)
        if (!list[i])
            return nullptr;
    return list[offset];
}

static const char *entryText(StrArray list, unsigned count, int offset) {
    const char *entry = entryAt(list, count, offset);
    return entry ? entry : "";
}

// ---------------------------------------------------------------------------------------------
// The beginning

void beginInstallDelete() {
    static const char *const self = "beginInstallDelete";
    if (s_PurgeFileCount && s_ppPurgeFiles) {
        vyxLog(LOG_DEBUG, "%s: %d potential files to be deleted", self, s_PurgeFileCount);
        s_PurgeFileOffset = -1;
        deletePackage();
    }
    if (!s_FileCount || !s_ppFiles) {
        vyxLog(LOG_DEBUG, "%s: No files to consider installing or updating", self);
        releaseCurlHandle();
        processEndPackageInfo(FAIL_NONE, self);
        return;
    }
    restartExitTimer(EXIT_TIMER_LONG_MS);
    vyxLog(LOG_DEBUG, "%s: %d potential files to install or update", self, s_FileCount);
    s_FileInfoOffset = -1;
    setDownloadStateMode(DSM_LOCAL, self);
    if (getConnectionStatus(false) != 0) {
        launchVYXCoreMessage(POPUP_CHECK, nullptr, nullptr);
        processNextPackageInfo();
        return;
    }
    startConnectionWait();
}

// ---------------------------------------------------------------------------------------------
// The install walk

static bool sendInstallRequest(const char *packageId, char *installText, int32_t size) {
    static const char *const logName = "processNextPackageInfo";
    restartExitTimer(EXIT_TIMER_LONG_MS);
    bool sent = callService(logName, INSTALL_SERVICE_INSTALL, installText, installPackageCB);
    g_free(installText);
    if (sent)
        vyxLog(LOG_DEBUG, "%s: Install request made for package [%s]", logName, packageId);
    addToInstallProgressTable(packageId, static_cast<uint32_t>(size));
    if (strcmp(packageId, VYX_SERVICE_DATA_PACKAGE) == 0)
        copyRoleFiles();
    setDownloadStateMode(DSM_INSTALLING, logName, {DSM_ONRAMP, DSM_LOCAL, DSM_INSTALLING});
    return sent;
}

static void endOfWalk(bool lastQueryWorked) {
    static const char *const logName = "processNextPackageInfo";
    vyxLog(LOG_DEBUG, "%s: Cleanup: Install count: %d", logName, s_InstallFileCount);
    releaseCurlHandle();
    if (s_InstallFileCount)
        requestInstallStatus();
    else
        processEndPackageInfo(lastQueryWorked ? FAIL_NONE : FAIL_CONNECT, logName);
}

bool processNextPackageInfo() {
    static const char *const self = "processNextPackageInfo";
    bool lastQueryWorked = true;
    bool failedOnce = false; // the store gets one more try per package
    s_FileInfoOffset++;
    char *packageId;
    while (s_CurlHandle && (packageId = entryAt(s_ppFiles, s_FileCount, s_FileInfoOffset))) {
        if (!*packageId) {
            s_FileInfoOffset++;
            continue;
        }
        char version[101] = {};
        bool installed = doesPackageExist(packageId, version);
        vyxLog(LOG_DEBUG, "%s: About to check Bazaro for: %s", self, packageId);
        runRecordStoreQuery(packageId, s_FileInfoOffset, s_FileCount);
        bool found = false;
        char *installText = nullptr;
        int32_t size = 0;
        lastQueryWorked = checkBazaro(s_CurlHandle, packageId, installed ? version : "", &found,
                                      &installText, &size);
        if (!lastQueryWorked) {
            if (!failedOnce) {
                vyxLog(LOG_DEBUG, "%s: Search for Package [%s] in Bazaro failed%s", self, packageId,
                       ", try one mo'time");
                failedOnce = true;
                continue;
            }
            vyxLog(LOG_DEBUG, "%s: Search for Package [%s] in Bazaro failed%s", self, packageId,
                   " twice!");
            packageId[0] = '\0';
            launchVYXCoreMessage(POPUP_FAIL_CONNECT, nullptr, nullptr);
            break;
        }
        failedOnce = false;
        if (!found) {
            vyxLog(LOG_DEBUG, "%s: Package [%s] not found in Bazaro", self, packageId);
            packageId[0] = '\0';
        } else if (!installText) {
            vyxLog(LOG_DEBUG, "%s: Package [%s] either not found or is current", self, packageId);
            packageId[0] = '\0';
        } else if (sendInstallRequest(packageId, installText, size)) {
            return true;
        }
        s_FileInfoOffset++;
    }
    endOfWalk(lastQueryWorked);
    return lastQueryWorked;
}

bool installPackageCB(BusHandle *, BusMessage *reply, void *) {
    static const char *const self = "installPackageCB";
    bool ignored = false;
    bool refused = isRefusal(reply, self, &ignored);
    if (ignored)
        return true;
    const char *packageId = entryText(s_ppFiles, s_FileCount, s_FileInfoOffset);
    runRecordInstallReply(packageId, refused, KSMessageGetPayload(reply));
    if (refused) {
        if (!s_InstallFileCount)
            launchVYXCoreMessage(POPUP_FAIL_CONNECT, nullptr, nullptr);
        vyxLog(LOG_ERR, "%s: Failed to begin install of package [%s]: %s", self, packageId,
               logText(KSMessageGetPayload(reply)));
        processNextPackageInfo();
        return true;
    }
    vyxLog(LOG_DEBUG, "%s: package [%s] install request made", self, packageId);
    prvStrArrayAppend(&s_ppInstallFiles, packageId);
    launchVYXCoreMessage(POPUP_START_INSTALL, nullptr, nullptr);
    s_InstallMsgCountDown = 3;
    s_InstallFileCount++;
    s_LastMsgSecs = hostNowSeconds();
    requestInstallStatus();
    processNextPackageInfo();
    return true;
}

// ---------------------------------------------------------------------------------------------
// The delete chain

void deletePackage() {
    static const char *const self = "deletePackage";
    char *packageId;
    do {
        s_PurgeFileOffset++;
        packageId = entryAt(s_ppPurgeFiles, s_PurgeFileCount, s_PurgeFileOffset);
        if (!packageId) {
            freeStrArray(&s_ppPurgeFiles);
            s_PurgeFileCount = 0;
            s_PurgeFileOffset = -1;
            vyxLog(LOG_DEBUG, "%s: Cleanup", self);
            return;
        }
    } while (!*g_strstrip(packageId));
    vyxLog(LOG_DEBUG, "%s: %s", self, packageId);
    runRecordRemove(packageId, s_PurgeFileOffset, s_PurgeFileCount);
    g_autofree char *payload = g_strdup_printf(REMOVE_PAYLOAD_FORMAT, packageId);
    if (callService(self, INSTALL_SERVICE_REMOVE, payload, deletePackageCB) &&
        s_PurgeFileOffset == 0)
        restartExitTimer(EXIT_TIMER_LONG_MS);
}

bool deletePackageCB(BusHandle *, BusMessage *reply, void *) {
    static const char *const self = "deletePackageCB";
    bool ignored = false;
    bool refused = isRefusal(reply, self, &ignored);
    if (ignored)
        return true;
    const char *packageId = entryText(s_ppPurgeFiles, s_PurgeFileCount, s_PurgeFileOffset);
    runRecordRemoveReply(packageId, refused);
    if (refused)
        vyxLog(LOG_ERR, "%s: Failed to delete package [%s]: %s", self, packageId,
               logText(KSMessageGetPayload(reply)));
    else
        vyxLog(LOG_DEBUG, "%s: package [%s] delete request made", self, packageId);
    deletePackage();
    return true;
}

// ---------------------------------------------------------------------------------------------
// The end of the install phase

void processEndPackageInfo(int failType, const char *caller) {
    static const char *const self = "processEndPackageInfo";
    vyxLog(LOG_DEBUG, "%s: Called with failType %d from %s", self, failType, logText(caller));
    runRecordInstallPhaseEnd(failType);
    launchVYXCoreMessage(failType ? POPUP_FAIL_CONNECT : POPUP_START_VYX, nullptr, nullptr);
    setDownloadStateMode(DSM_RECONCILE, self, {DSM_ONRAMP, DSM_LOCAL, DSM_INSTALLING});
    callService(self, APP_MANAGER_LIST_PACKAGES, "{}", listPkgsCBReconcile);
    if (failType == FAIL_NONE)
        saveProfileFileList(s_ppProfileFiles);
}
