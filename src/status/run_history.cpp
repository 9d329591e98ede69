#include "status/run_history.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <string.h>

#include "common/files.h"
#include "platform/log.h"
#include "platform/paths.h"
#include "provision/config.h"
#include "store/profile.h"

std::string jsonQuoted(const char *text) {
    g_autofree char *valid = g_utf8_make_valid(text ? text : "", -1);
    std::string out = "\"";
    for (const char *c = valid; *c; ++c) {
        auto byte = static_cast<unsigned char>(*c);
        if (byte == '"' || byte == '\\') {
            out += '\\';
            out += *c;
        } else if (byte == '\n') {
            out += "\\n";
        } else if (byte < 0x20 || byte == 0x7f) {
            char escaped[8];
            g_snprintf(escaped, sizeof escaped, "\\u%04x", byte);
            out += escaped;
        } else {
            out += *c;
        }
    }
    return out + "\"";
}

std::vector<std::string> runHistoryLoad() {
    std::string path = vyxPath(RUN_HISTORY_FILE);
    std::optional<std::vector<std::string>> records = runHistoryRead(path);
    if (!records) {
        // Said once: every runStatus between runs reads the file again.
        static bool s_reported = false;
        if (!s_reported)
            vyxLog(LOG_ALERT, "%s: Damaged run history, starting afresh: %s", "runHistoryLoad",
                   path.c_str());
        s_reported = true;
        return {};
    }
    return *records;
}

bool runHistoryAppend(const std::string &record) {
    std::vector<std::string> records = runHistoryLoad();
    records.push_back(record);
    size_t first = records.size() > RUN_HISTORY_MAX ? records.size() - RUN_HISTORY_MAX : 0;
    std::string text = "{\"runs\":[";
    for (size_t i = first; i < records.size(); ++i)
        text += (i > first ? ",\n" : "\n") + records[i];
    text += "\n]}\n";
    std::string path = vyxPath(RUN_HISTORY_FILE);
    g_autofree char *dir = g_path_get_dirname(path.c_str());
    g_mkdir_with_parents(dir, 0755);
    g_autoptr(GError) error = nullptr;
    if (!g_file_set_contents(path.c_str(), text.c_str(), static_cast<gssize>(text.size()),
                             &error)) {
        vyxLog(LOG_ERR, "%s: Can't write %s: %s", "runHistoryAppend", path.c_str(), error->message);
        return false;
    }
    return true;
}

// GLib's whole-file write names its temporary file after the target plus "." and six characters
// from this set (g_mkstemp's template).
static bool isWriteLeftover(const char *name, const char *target) {
    static const char suffixChars[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    size_t length = strlen(target);
    if (strncmp(name, target, length) != 0 || name[length] != '.' || strlen(name) != length + 7)
        return false;
    return strspn(name + length + 1, suffixChars) == 6;
}

void removeWriteLeftovers() {
    static const char *const ownFiles[] = {
        ROLE_DIR_PRIVATE ROLE_FILE_NAME,
        ROLE_DIR_PUBLIC ROLE_FILE_NAME,
        PROFILE_LIST_FILE,
        DYNAMIC_CONFIG_FILE,
        RUN_HISTORY_FILE,
    };
    for (const char *file : ownFiles) {
        std::string path = vyxPath(file);
        g_autofree char *dir = g_path_get_dirname(path.c_str());
        g_autofree char *target = g_path_get_basename(path.c_str());
        g_autoptr(GDir) listing = g_dir_open(dir, 0, nullptr);
        while (const char *name = listing ? g_dir_read_name(listing) : nullptr) {
            if (!isWriteLeftover(name, target))
                continue;
            g_autofree char *leftover = g_build_filename(dir, name, nullptr);
            if (g_unlink(leftover) == 0)
                vyxLog(LOG_ALERT, "%s: Removed %s, left over from an interrupted write",
                       "removeWriteLeftovers", leftover);
        }
    }
}
