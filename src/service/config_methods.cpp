#include "service/config_methods.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <string.h>

#include <string>

#include "common/files.h"
#include "common/json_access.h"
#include "platform/log.h"
#include "platform/paths.h"
#include "provision/config.h"
#include "provision/download.h"
#include "service/demo_state.h"
#include "service/service.h"
#include "status/run_record.h"
#include "store/profile.h"

#define CONFIG_NAME_PREFIX "com.velto."
#define CONFIG_NAME_SUFFIX ".conf"

bool isValidConfigFileName(const char *name) {
    // With the prefix, the suffix and no dot next to a slash, no path part can be "." or "..",
    // so the name stays below the applications directory.
    static const char *const forbiddenSequences[] = {"./", "/."};
    static const char forbiddenCharacters[] = "$?*<\">\\:\r\n\t";
    if (!name || !g_str_has_prefix(name, CONFIG_NAME_PREFIX) ||
        !g_str_has_suffix(name, CONFIG_NAME_SUFFIX))
        return false;
    for (const char *sequence : forbiddenSequences)
        if (strstr(name, sequence))
            return false;
    return strpbrk(name, forbiddenCharacters) == nullptr;
}

static bool demoKnownOff() {
    return isDemoStatusLoaded() == 1 && !isDemoRunning();
}

bool assignConfigFile(BusHandle *handle, BusMessage *message, void *) {
    static const char *const self = "assignConfigFile";
    vyxLog(LOG_DEBUG, "%s: payload %s", self, logText(KSMessageGetPayload(message)));
    JsonTree root = prvKSMessageGetPayloadJSON(message);
    bool isObject = root && root->type == JSON_OBJECT;
    const JsonNode *name = isObject ? json_find_first_label(root.get(), "name") : nullptr;
    const JsonNode *action = isObject ? json_find_first_label(root.get(), "action") : nullptr;
    restartExitTimer(EXIT_TIMER_SHORT_MS);
    if (isDemoStatusLoaded() == -1) {
        vyxLog(LOG_ALERT, "%s: Demo status is undefined, request", self);
        determineKovaDemoPref(nullptr);
    }
    if (!root) {
        sendNegativeResponse(handle, message, "Parameter error");
        return true;
    }
    if (name && !isValidConfigFileName(labelText(name))) {
        sendNegativeResponse(handle, message, "'name' is invalid");
        return true;
    }
    if (!action) {
        sendNegativeResponse(handle, message, "Parameter error");
        return true;
    }

    const char *actionText = labelText(action);
    std::string dynamicFile = vyxPath(getDynamicConfigFileName());
    bool done = false;
    if (name && g_ascii_strcasecmp(actionText, "copy") == 0) {
        g_autofree char *source = g_strdup_printf(APPLICATIONS_DIR_FORMAT, labelText(name));
        std::string rootedSource = vyxPath(source);
        if (!g_file_test(rootedSource.c_str(), G_FILE_TEST_EXISTS)) {
            g_autofree char *text = g_strdup_printf("Named file not found: %s", labelText(name));
            sendNegativeResponse(handle, message, text);
            return true;
        }
        if (!prvCopyFile(rootedSource.c_str(), dynamicFile.c_str())) {
            g_autofree char *text = g_strdup_printf("File copy failed: %s", source);
            sendNegativeResponse(handle, message, text);
            return true;
        }
        done = true;
    } else if (g_ascii_strcasecmp(actionText, "delete") == 0) {
        if (g_file_test(dynamicFile.c_str(), G_FILE_TEST_EXISTS)) {
            g_unlink(dynamicFile.c_str());
            done = true;
        }
    } else {
        sendNegativeResponse(handle, message, "'action' missing or invalid");
        return true;
    }

    sendAffirmativeResponse(handle, message);
    vyxLog(LOG_DEBUG, "%s: Affirmative response sent, action '%s' %s", self, actionText,
           done ? "done" : "skipped");
    if (!done)
        return true;
    if (demoKnownOff()) {
        vyxLog(LOG_DEBUG, "%s: Demo status is OFF, file download prevented", self);
    } else if (getDownloadStateMode() != DSM_IDLE) {
        vyxLog(LOG_DEBUG, "%s: Download already in process", self);
    } else {
        restartExitTimer(EXIT_TIMER_SHORT_MS);
        setDownloadReason(false);
        runRecordBegin(RunTrigger::AssignConfigFile);
        initiateFileDownload();
    }
    // The next run rebuilds the profile list and looks for the demonstration application anew.
    deleteProfileFileList();
    clearVyxAppPresent();
    return true;
}

bool verifyPackages(BusHandle *handle, BusMessage *message, void *) {
    static const char *const self = "verifyPackages";
    DownloadStateMode mode = getDownloadStateMode();
    if (mode != DSM_IDLE) {
        vyxLog(LOG_DEBUG, "%s: Reject request, downoad in process: %d", self, mode);
        restartExitTimer(EXIT_TIMER_SHORT_MS);
        sendNegativeResponse(handle, message, "VYX file download already in process");
        return true;
    }
    vyxLog(LOG_DEBUG, "%s: Started", self);
    if (isDemoStatusLoaded() == -1)
        determineKovaDemoPref(nullptr);
    restartExitTimer(EXIT_TIMER_SHORT_MS);
    if (demoKnownOff()) {
        sendNegativeResponse(handle, message, "VYX is not running");
        return true;
    }
    setDownloadReason(false);
    sendAffirmativeResponse(handle, message);
    runRecordBegin(RunTrigger::VerifyPackages);
    initiateFileDownload();
    return true;
}
