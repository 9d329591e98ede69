// The JSON tree parser (the platform's libmjson names).
//
// Strict RFC 8259: the whole text must be one JSON value, otherwise the result is null. String,
// key and number texts are kept exactly as written: escapes are not resolved and quotes are
// removed, so a text copied from one payload into another stays valid JSON. Parsing and freeing
// are iterative with a bounded depth, so no input can exhaust the stack.
#pragma once

#include <memory>
#include <string>

enum json_value_type {
    JSON_STRING = 0,
    JSON_NUMBER,
    JSON_OBJECT,
    JSON_ARRAY,
    JSON_TRUE,
    JSON_FALSE,
    JSON_NULL,
};

// An object's children are its member labels: string nodes whose text is the key and whose
// single child is the value. An array's children are its elements in order.
struct json_t {
    json_value_type type;
    char *text; // strings, numbers and labels; null for other nodes
    json_t *parent;
    json_t *child;
    json_t *lastChild;
    json_t *next;
    json_t *previous;
};
typedef json_t JsonNode;

// Deepest nesting of arrays and objects accepted.
constexpr int JSON_MAX_DEPTH = 512;

JsonNode *json_parse_document(const char *text);
// The first member label with that key in an object node, or null.
JsonNode *json_find_first_label(const JsonNode *object, const char *key);
// True and the value when the member is present and a boolean.
bool json_get_bool(const JsonNode *object, const char *key, bool *value);
// True and the value's text when the member is present and a string.
bool json_get_string(const JsonNode *object, const char *key, const char **value);
// Frees a whole tree (from its root) and sets the pointer to null.
void json_free_value(JsonNode **root);

// Writes a value back as compact JSON; texts go out as they were written, so the result is valid
// JSON whenever the tree came from the parser.
std::string json_write(const JsonNode *value);

struct JsonTreeDeleter {
    void operator()(JsonNode *root) const { json_free_value(&root); }
};
// Owner of a parsed tree.
using JsonTree = std::unique_ptr<JsonNode, JsonTreeDeleter>;

inline JsonTree jsonParse(const char *text) {
    return JsonTree(json_parse_document(text));
}
