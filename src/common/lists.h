// ";"-joined lists and NULL-terminated StrArrays of heap strings (g_strsplit/g_strfreev).
// The owner of a StrArray keeps its element count beside it.
#pragma once

typedef char **StrArray;

const char *getStringSeparator();
int prvFindInStringArray(StrArray array, int count, const char *string);
StrArray prvStrArrayAppend(StrArray *array, const char *string);
char *prvStrAppend(char **list, const char *string);
