#include "platform/json.h"

#include <glib.h>
#include <string.h>

// Every node is one allocation with its text (if any) stored right behind it, so a parse costs
// one allocation per value and a free never has to ask which texts it owns.
static JsonNode *newNode(json_value_type type, const char *text, size_t length) {
    JsonNode *node;
    if (text) {
        node = static_cast<JsonNode *>(g_malloc(sizeof(JsonNode) + length + 1));
        node->text = reinterpret_cast<char *>(node + 1);
        memcpy(node->text, text, length);
        node->text[length] = '\0';
    } else {
        node = g_new(JsonNode, 1);
        node->text = nullptr;
    }
    node->type = type;
    node->parent = node->child = node->lastChild = node->next = node->previous = nullptr;
    return node;
}

static void appendChild(JsonNode *parent, JsonNode *node) {
    node->parent = parent;
    node->previous = parent->lastChild;
    if (parent->lastChild)
        parent->lastChild->next = node;
    else
        parent->child = node;
    parent->lastChild = node;
}

static inline const char *skipWhitespace(const char *p) {
    while (*p == ' ' || *p == '\t' || *p == '\n' || *p == '\r')
        p++;
    return p;
}

static inline bool isHex(unsigned char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

static inline bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

static inline bool inRange(const char *p, unsigned char low, unsigned char high) {
    unsigned char c = static_cast<unsigned char>(*p);
    return c >= low && c <= high;
}

// Length of the well-formed UTF-8 sequence at p (RFC 3629: no overlong forms, no encoded
// surrogates, nothing above U+10FFFF), or 0. The terminating NUL never counts as a continuation
// byte, so this cannot read past the end of the text.
static size_t utf8Sequence(const char *p) {
    unsigned char c = static_cast<unsigned char>(*p);
    if (c >= 0xC2 && c <= 0xDF)
        return inRange(p + 1, 0x80, 0xBF) ? 2 : 0;
    if (c >= 0xE0 && c <= 0xEF) {
        unsigned char low = c == 0xE0 ? 0xA0 : 0x80;
        unsigned char high = c == 0xED ? 0x9F : 0xBF;
        return inRange(p + 1, low, high) && inRange(p + 2, 0x80, 0xBF) ? 3 : 0;
    }
    if (c >= 0xF0 && c <= 0xF4) {
        unsigned char low = c == 0xF0 ? 0x90 : 0x80;
        unsigned char high = c == 0xF4 ? 0x8F : 0xBF;
        return inRange(p + 1, low, high) && inRange(p + 2, 0x80, 0xBF) && inRange(p + 3, 0x80, 0xBF)
                   ? 4
                   : 0;
    }
    return 0;
}

// p is just past the opening quote. Returns the closing quote, or null when the string is not
// well formed. Escapes are only checked: the text is kept as written.
static const char *scanString(const char *p) {
    for (;;) {
        unsigned char c = static_cast<unsigned char>(*p);
        if (c == '"')
            return p;
        if (c < 0x20)
            return nullptr; // control characters, and the end of the text
        if (c == '\\') {
            switch (p[1]) {
            case '"':
            case '\\':
            case '/':
            case 'b':
            case 'f':
            case 'n':
            case 'r':
            case 't':
                p += 2;
                break;
            case 'u':
                if (!isHex(p[2]) || !isHex(p[3]) || !isHex(p[4]) || !isHex(p[5]))
                    return nullptr;
                p += 6;
                break;
            default:
                return nullptr;
            }
        } else if (c < 0x80) {
            p++;
        } else {
            size_t length = utf8Sequence(p);
            if (!length)
                return nullptr;
            p += length;
        }
    }
}

// Returns the first character after the number, or null when p does not start a number.
static const char *scanNumber(const char *p) {
    if (*p == '-')
        p++;
    if (*p == '0') {
        p++;
    } else if (*p >= '1' && *p <= '9') {
        while (isDigit(*p))
            p++;
    } else {
        return nullptr;
    }
    if (*p == '.') {
        p++;
        if (!isDigit(*p))
            return nullptr;
        while (isDigit(*p))
            p++;
    }
    if (*p == 'e' || *p == 'E') {
        p++;
        if (*p == '+' || *p == '-')
            p++;
        if (!isDigit(*p))
            return nullptr;
        while (isDigit(*p))
            p++;
    }
    return p;
}

// The array or object that a finished value belongs to; a member's value sits under its label.
static JsonNode *enclosingContainer(JsonNode *node) {
    JsonNode *parent = node->parent;
    if (parent && parent->type == JSON_STRING)
        parent = parent->parent;
    return parent;
}

// One pass over the text. Open containers are tracked through the parent links of the tree
// being built, so nesting costs no native stack; depth is counted against JSON_MAX_DEPTH.
JsonNode *json_parse_document(const char *text) {
    if (!text)
        return nullptr;

    JsonNode *root = nullptr;
    JsonNode *container = nullptr; // innermost open array or object
    int depth = 0;
    const char *p = text;

    // Links a new value where the grammar put it: the root, an array element, or the value of
    // the member label that was just read.
    auto place = [&](JsonNode *node) {
        if (!container)
            root = node;
        else if (container->type == JSON_ARRAY)
            appendChild(container, node);
        else
            appendChild(container->lastChild, node);
    };

    enum { VALUE, KEY, AFTER_VALUE } state = VALUE;
    for (;;) {
        p = skipWhitespace(p);
        if (state == VALUE) {
            JsonNode *node;
            switch (*p) {
            case '{':
            case '[':
                if (++depth > JSON_MAX_DEPTH)
                    goto fail;
                node = newNode(*p == '{' ? JSON_OBJECT : JSON_ARRAY, nullptr, 0);
                place(node);
                container = node;
                p = skipWhitespace(p + 1);
                if (*p == (node->type == JSON_OBJECT ? '}' : ']')) {
                    p++;
                    depth--;
                    container = enclosingContainer(node);
                    state = AFTER_VALUE;
                } else {
                    state = node->type == JSON_OBJECT ? KEY : VALUE;
                }
                continue;
            case '"': {
                const char *end = scanString(p + 1);
                if (!end)
                    goto fail;
                place(newNode(JSON_STRING, p + 1, static_cast<size_t>(end - p - 1)));
                p = end + 1;
                break;
            }
            case 't':
                if (strncmp(p, "true", 4) != 0)
                    goto fail;
                place(newNode(JSON_TRUE, nullptr, 0));
                p += 4;
                break;
            case 'f':
                if (strncmp(p, "false", 5) != 0)
                    goto fail;
                place(newNode(JSON_FALSE, nullptr, 0));
                p += 5;
                break;
            case 'n':
                if (strncmp(p, "null", 4) != 0)
                    goto fail;
                place(newNode(JSON_NULL, nullptr, 0));
                p += 4;
                break;
            default: {
                const char *end = scanNumber(p);
                if (!end)
                    goto fail;
                place(newNode(JSON_NUMBER, p, static_cast<size_t>(end - p)));
                p = end;
                break;
            }
            }
            state = AFTER_VALUE;
        } else if (state == KEY) {
            if (*p != '"')
                goto fail;
            const char *end = scanString(p + 1);
            if (!end)
                goto fail;
            appendChild(container, newNode(JSON_STRING, p + 1, static_cast<size_t>(end - p - 1)));
            p = skipWhitespace(end + 1);
            if (*p != ':')
                goto fail;
            p++;
            state = VALUE;
        } else { // AFTER_VALUE
            if (!container) {
                if (*p != '\0')
                    goto fail;
                return root;
            }
            bool isObject = container->type == JSON_OBJECT;
            if (*p == ',') {
                p++;
                state = isObject ? KEY : VALUE;
            } else if (*p == (isObject ? '}' : ']')) {
                p++;
                depth--;
                container = enclosingContainer(container);
            } else {
                goto fail;
            }
        }
    }

fail:
    json_free_value(&root);
    return nullptr;
}

JsonNode *json_find_first_label(const JsonNode *object, const char *key) {
    if (!object || !key || object->type != JSON_OBJECT)
        return nullptr;
    for (JsonNode *label = object->child; label; label = label->next)
        if (label->text && strcmp(label->text, key) == 0)
            return label;
    return nullptr;
}

bool json_get_bool(const JsonNode *object, const char *key, bool *value) {
    JsonNode *label = json_find_first_label(object, key);
    if (!label || !label->child)
        return false;
    if (label->child->type != JSON_TRUE && label->child->type != JSON_FALSE)
        return false;
    if (value)
        *value = label->child->type == JSON_TRUE;
    return true;
}

bool json_get_string(const JsonNode *object, const char *key, const char **value) {
    JsonNode *label = json_find_first_label(object, key);
    if (!label || !label->child || label->child->type != JSON_STRING)
        return false;
    if (value)
        *value = label->child->text;
    return true;
}

// Freeing a subtree unlinks it from its parent first, so the rest of the tree stays sound. The
// walk itself is post-order over the tree's own links: descend to a leaf, free it, continue with
// its sibling or climb back to a parent that has become a leaf.
void json_free_value(JsonNode **root) {
    if (!root || !*root)
        return;
    JsonNode *top = *root;
    *root = nullptr;

    if (JsonNode *parent = top->parent) {
        if (top->previous)
            top->previous->next = top->next;
        else
            parent->child = top->next;
        if (top->next)
            top->next->previous = top->previous;
        else
            parent->lastChild = top->previous;
        top->parent = top->next = top->previous = nullptr;
    }

    JsonNode *node = top;
    while (node) {
        if (node->child) {
            node = node->child;
            continue;
        }
        JsonNode *next = node->next;
        JsonNode *parent = node->parent;
        g_free(node);
        if (next) {
            node = next;
        } else {
            node = parent;
            if (node)
                node->child = nullptr;
        }
    }
}

static void writeValue(std::string &out, const JsonNode *value) {
    if (!value) {
        out += "null";
        return;
    }
    switch (value->type) {
    case JSON_STRING:
        out += '"';
        out += value->text ? value->text : "";
        out += '"';
        return;
    case JSON_NUMBER:
        out += value->text ? value->text : "0";
        return;
    case JSON_TRUE:
        out += "true";
        return;
    case JSON_FALSE:
        out += "false";
        return;
    case JSON_NULL:
        out += "null";
        return;
    case JSON_OBJECT:
    case JSON_ARRAY: {
        // Recursion is bounded by the parser's depth limit.
        bool object = value->type == JSON_OBJECT;
        out += object ? '{' : '[';
        for (const JsonNode *child = value->child; child; child = child->next) {
            if (child != value->child)
                out += ',';
            if (object) {
                out += '"';
                out += child->text ? child->text : "";
                out += "\":";
                writeValue(out, child->child);
            } else {
                writeValue(out, child);
            }
        }
        out += object ? '}' : ']';
        return;
    }
    }
    out += "null";
}

std::string json_write(const JsonNode *value) {
    std::string out;
    writeValue(out, value);
    return out;
}
