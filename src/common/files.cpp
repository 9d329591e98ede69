#include "common/files.h"

#include <glib.h>
#include <string.h>

#include <string>

#include "common/texts.h"
#include "platform/log.h"
#include "platform/paths.h"

bool prvCopyFile(const char *source, const char *destination) {
    static const char *const self = "prvCopyFile";
    if (!source || !destination) {
        vyxLog(LOG_DEBUG, "%s: %s", self, "Invalid parameters");
        return false;
    }
    if (!g_file_test(source, G_FILE_TEST_EXISTS)) {
        vyxLog(LOG_DEBUG, "%s: %s", self, "Source file not found");
        return false;
    }

    g_autofree char *contents = nullptr;
    gsize length = 0;
    g_autoptr(GError) error = nullptr;
    if (!g_file_get_contents(source, &contents, &length, &error)) {
        vyxLog(LOG_DEBUG, "%s: Can't import source file: %s, %s", self, source,
               error ? error->message : "");
        return false;
    }
    // An existing destination is replaced by the rename that ends the whole-file write; removing
    // it beforehand would only open a moment in which the bus finds no role file at all.
    if (!g_file_set_contents(destination, contents, static_cast<gssize>(length), &error)) {
        vyxLog(LOG_DEBUG, "%s: Can't create destination file: %s, %s", self, destination,
               error ? error->message : "");
        return false;
    }
    return true;
}

void copyRoleFiles() {
    vyxLog(LOG_DEBUG, "%s: Start", "copyRoleFiles");
    std::string source = vyxPath(ROLE_FILE_SOURCE);
    for (const char *roleDir : {ROLE_DIR_PRIVATE, ROLE_DIR_PUBLIC}) {
        std::string dir = vyxPath(roleDir);
        // A directory that can't be made shows up as the copy's own failure line.
        if (!g_file_test(dir.c_str(), G_FILE_TEST_EXISTS))
            g_mkdir_with_parents(dir.c_str(), 0755);
        std::string destination = dir + ROLE_FILE_NAME;
        prvCopyFile(source.c_str(), destination.c_str());
    }
}

bool getPackageFromApp(char *buffer, const char *appId, size_t size) {
    if (!buffer || !appId || !*appId || size == 0)
        return false;
    copyReceivedText(buffer, appId, size);
    size_t length = strlen(buffer);
    if (length >= 5 && g_ascii_strcasecmp(buffer + length - 4, ".app") == 0)
        buffer[length - 4] = '\0';
    return true;
}
