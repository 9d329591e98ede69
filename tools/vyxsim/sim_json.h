// JSON helpers of the simulator, on top of the platform's tree parser.
//
// The parser keeps texts as written (escapes unresolved). The simulator keeps its own state as
// plain text, so it unescapes what it reads and escapes what it writes; trees that only pass
// through (preferences, launch parameters) are written back as they came.
#pragma once

#include <string>
#include <string_view>

#include "platform/json.h"

std::string jsonEscape(std::string_view text);
// The platform writes file paths with every slash escaped ("\/media\/..."), and so do we.
std::string jsonEscapeSlashes(std::string_view text);
// Resolves the escapes of a raw parser text; an invalid escape is kept as written.
std::string jsonUnescape(std::string_view raw);

// The value node of member `key` in an object node, or null.
const JsonNode *jsonMember(const JsonNode *object, const char *key);
// The unescaped text of a string or number value; empty for anything else.
std::string jsonText(const JsonNode *value);
// A JSON true, or a string that says true in any letter case.
bool jsonTruthy(const JsonNode *value);
// "returnValue" is false (literal or text).
bool jsonReplyFailed(const JsonNode *root);

// The daemon writes some payloads the way the platform's own clients do: single-quoted strings
// (store bodies, install requests) and a trailing comma (activity creation). Those are turned
// into strict JSON before parsing; anything the parser still refuses gives null.
std::string jsonNormalizeLenient(std::string_view text);
JsonTree jsonParseLenient(const char *text);

// "\"" + escaped text + "\"".
std::string jsonQuote(std::string_view text);
// Appends `item` to a list text, with `separator` before it unless the list is empty.
void appendItem(std::string &list, std::string_view item, char separator = ',');

// "{" + a + b + "}" where a and b are member lists ("\"k\":v,..."), either possibly empty.
std::string jsonJoinMembers(std::string_view a, std::string_view b);
