#include "common/texts.h"

#include <glib.h>
#include <string.h>

static bool prvIsEscapeOf(const char *text, char low, char high) {
    return text[0] == '\\' && text[1] == 'u' && g_ascii_tolower(text[2]) == 'd' &&
           g_ascii_tolower(text[3]) >= low && g_ascii_tolower(text[3]) <= high;
}

// Bytes of the piece that starts text, or 0 when text ends inside an escape. Bytes that are
// not well-formed UTF-8 go one at a time: the bus layer repairs them wherever the cut lands.
static size_t prvPieceLength(const char *text) {
    auto byte = [text](size_t i) { return static_cast<unsigned char>(text[i]); };
    if (byte(0) == '\\') {
        if (byte(1) == '\0')
            return 0;
        if (byte(1) != 'u')
            return 2;
        for (size_t i = 2; i < 6; i++)
            if (!g_ascii_isxdigit(text[i]))
                return text[i] ? i : 0;
        // Either half of a pair alone decodes to U+FFFD on the other side.
        if (prvIsEscapeOf(text, '8', 'b') && prvIsEscapeOf(text + 6, 'c', 'f')) {
            size_t low = prvPieceLength(text + 6);
            return low == 6 ? 12 : low == 0 ? 0 : 6;
        }
        return 6;
    }
    size_t length = byte(0) >= 0xF0 ? 4 : byte(0) >= 0xE0 ? 3 : byte(0) >= 0xC0 ? 2 : 1;
    for (size_t i = 1; i < length; i++)
        if ((byte(i) & 0xC0) != 0x80)
            return 1;
    return length;
}

void copyReceivedText(char *dest, const char *src, size_t size) {
    if (!dest || size == 0)
        return;
    size_t used = 0;
    while (src && src[used]) {
        size_t piece = prvPieceLength(src + used);
        if (piece == 0 || used + piece >= size)
            break;
        used += piece;
    }
    if (used)
        memcpy(dest, src, used);
    dest[used] = '\0';
}
