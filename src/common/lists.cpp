#include "common/lists.h"

#include <glib.h>

static const char strSeperator[] = ";";

const char *getStringSeparator() {
    return strSeperator;
}

int prvFindInStringArray(StrArray array, int count, const char *string) {
    if (!array || count == 0 || !string || !*string)
        return -1;
    // The owner's count bounds the scan: entries beyond it are not the owner's to report. A
    // count that overstates the array still stops at the terminator.
    for (int i = 0; i < count && array[i]; i++)
        if (g_strcmp0(array[i], string) == 0)
            return i;
    return -1;
}

StrArray prvStrArrayAppend(StrArray *array, const char *string) {
    if (!array)
        return nullptr;
    if (!string || !*string)
        return *array;
    if (!*array) {
        *array = g_strsplit(string, strSeperator, -1);
        return *array;
    }
    // Going through the joined text keeps the one rule of every list: an appended string that
    // holds the separator becomes several elements.
    g_autofree char *joined = g_strjoinv(strSeperator, *array);
    g_strfreev(*array);
    g_autofree char *combined = g_strjoin(strSeperator, joined, string, nullptr);
    *array = g_strsplit(combined, strSeperator, -1);
    return *array;
}

char *prvStrAppend(char **list, const char *string) {
    if (!list)
        return nullptr;
    if (!string || !*string)
        return *list;
    char *appended = *list ? g_strjoin(strSeperator, *list, string, nullptr) : g_strdup(string);
    g_free(*list);
    *list = appended;
    return *list;
}
