#include "common/version.h"

#include <glib.h>
#include <stdint.h>
#include <string.h>

#include "platform/log.h"

// The leading decimal integer of a version component, saturated to 32 bits: a component made
// of ten digits must not overflow into the wrong order.
static int64_t leadingNumber(const char *component) {
    gint64 value = g_ascii_strtoll(component, nullptr, 10);
    return CLAMP(value, INT32_MIN, INT32_MAX);
}

static int compareDotted(const char *a, const char *b) {
    if (g_ascii_strcasecmp(a, b) == 0)
        return 0;
    g_auto(GStrv) partsA = g_strsplit(a, ".", -1);
    g_auto(GStrv) partsB = g_strsplit(b, ".", -1);
    for (size_t i = 0;; i++) {
        if (!partsA[i])
            return partsB[i] ? -1 : 0;
        if (!partsB[i])
            return 1;
        int64_t difference = leadingNumber(partsA[i]) - leadingNumber(partsB[i]);
        if (difference != 0)
            return static_cast<int>(CLAMP(difference, INT32_MIN, INT32_MAX));
        int text = g_ascii_strcasecmp(partsA[i], partsB[i]);
        if (text != 0)
            return text;
    }
}

static int compareVersions(const char *a, const char *b) {
    if (!a || !b)
        return a ? 1 : (b ? -1 : 0);
    if (!*a)
        return *b ? -1 : 0;
    if (!*b)
        return 1;
    bool dottedA = strchr(a, '.') != nullptr;
    bool dottedB = strchr(b, '.') != nullptr;
    if (!dottedA && !dottedB)
        return g_ascii_strcasecmp(a, b);
    if (!dottedA || !dottedB)
        return dottedA ? 1 : -1;
    return compareDotted(a, b);
}

int versionCompare(const char *a, const char *b) {
    int result = compareVersions(a, b);
    vyxLog(LOG_DEBUG, "%s: Compare(%s,%s)=%d", "versionCompare", logText(a), logText(b), result);
    return result;
}
