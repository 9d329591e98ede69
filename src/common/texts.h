// Fixed-size copies of texts that came from outside (bus payloads, preferences, key files).
#pragma once

#include <stddef.h>

// Copies as much of src as fits in size - 1 bytes and terminates dest, like g_strlcpy, but ends
// the copy on a whole piece: a JSON escape as our parser keeps it ("\n", "\\", "\u00e9", and a
// surrogate pair "\ud83d\ude00" as one), or a whole UTF-8 character. A backslash that no complete
// escape follows at the end of src is left out. A null src gives the empty text.
void copyReceivedText(char *dest, const char *src, size_t size);
