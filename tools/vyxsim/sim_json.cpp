#include "sim_json.h"

#include <glib.h>

#include <cstdio>
#include <cstring>

static void appendEscaped(std::string &out, std::string_view text, bool slashes) {
    for (unsigned char c : text) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        case '/':
            out += slashes ? "\\/" : "/";
            break;
        default:
            if (c < 0x20) {
                char buf[8];
                snprintf(buf, sizeof buf, "\\u%04x", c);
                out += buf;
            } else {
                out += static_cast<char>(c);
            }
        }
    }
}

std::string jsonEscape(std::string_view text) {
    std::string out;
    out.reserve(text.size() + 8);
    appendEscaped(out, text, false);
    return out;
}

std::string jsonQuote(std::string_view text) {
    std::string out;
    out.reserve(text.size() + 2);
    out += '"';
    appendEscaped(out, text, false);
    out += '"';
    return out;
}

void appendItem(std::string &list, std::string_view item, char separator) {
    if (!list.empty())
        list += separator;
    list += item;
}

std::string jsonEscapeSlashes(std::string_view text) {
    std::string out;
    out.reserve(text.size() + 16);
    appendEscaped(out, text, true);
    return out;
}

static int hexValue(std::string_view raw, size_t at) {
    if (at + 4 > raw.size())
        return -1;
    int value = 0;
    for (size_t i = at; i < at + 4; ++i) {
        int digit = g_ascii_xdigit_value(raw[i]);
        if (digit < 0)
            return -1;
        value = value * 16 + digit;
    }
    return value;
}

std::string jsonUnescape(std::string_view raw) {
    std::string out;
    out.reserve(raw.size());
    for (size_t i = 0; i < raw.size(); ++i) {
        char c = raw[i];
        if (c != '\\' || i + 1 >= raw.size()) {
            out += c;
            continue;
        }
        char e = raw[i + 1];
        const char *simple = nullptr;
        switch (e) {
        case '"':
            simple = "\"";
            break;
        case '\\':
            simple = "\\";
            break;
        case '/':
            simple = "/";
            break;
        case 'b':
            simple = "\b";
            break;
        case 'f':
            simple = "\f";
            break;
        case 'n':
            simple = "\n";
            break;
        case 'r':
            simple = "\r";
            break;
        case 't':
            simple = "\t";
            break;
        default:
            break;
        }
        if (simple) {
            out += simple;
            ++i;
            continue;
        }
        int unit = e == 'u' ? hexValue(raw, i + 2) : -1;
        if (unit < 0) {
            out += c;
            continue;
        }
        size_t consumed = 6;
        gunichar code = static_cast<gunichar>(unit);
        if (unit >= 0xD800 && unit <= 0xDBFF && i + 7 < raw.size() && raw[i + 6] == '\\' &&
            raw[i + 7] == 'u') {
            int low = hexValue(raw, i + 8);
            if (low >= 0xDC00 && low <= 0xDFFF) {
                code = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
                consumed = 12;
            }
        }
        if (!g_unichar_validate(code))
            code = 0xFFFD;
        char utf8[8];
        int n = g_unichar_to_utf8(code, utf8);
        out.append(utf8, n);
        i += consumed - 1;
    }
    return out;
}

const JsonNode *jsonMember(const JsonNode *object, const char *key) {
    if (!object || object->type != JSON_OBJECT || !key)
        return nullptr;
    const JsonNode *label = json_find_first_label(object, key);
    return label ? label->child : nullptr;
}

std::string jsonText(const JsonNode *value) {
    if (!value || !value->text || (value->type != JSON_STRING && value->type != JSON_NUMBER))
        return {};
    return value->type == JSON_STRING ? jsonUnescape(value->text) : std::string(value->text);
}

bool jsonTruthy(const JsonNode *value) {
    if (!value)
        return false;
    if (value->type == JSON_TRUE)
        return true;
    return value->type == JSON_STRING && value->text &&
           g_ascii_strcasecmp(value->text, "true") == 0;
}

bool jsonReplyFailed(const JsonNode *root) {
    const JsonNode *value = jsonMember(root, "returnValue");
    if (!value)
        return false;
    if (value->type == JSON_FALSE)
        return true;
    return value->type == JSON_STRING && value->text &&
           g_ascii_strcasecmp(value->text, "false") == 0;
}

static void appendControl(std::string &out, unsigned char c) {
    char buf[8];
    snprintf(buf, sizeof buf, "\\u%04x", c);
    out += buf;
}

std::string jsonNormalizeLenient(std::string_view text) {
    std::string out;
    out.reserve(text.size() + 16);
    enum { OUTSIDE, DOUBLE, SINGLE } where = OUTSIDE;
    for (size_t i = 0; i < text.size(); ++i) {
        unsigned char c = text[i];
        switch (where) {
        case OUTSIDE:
            if (c == '\'') {
                out += '"';
                where = SINGLE;
            } else if (c == '"') {
                out += '"';
                where = DOUBLE;
            } else if (c == ',') {
                size_t next = i + 1;
                while (next < text.size() && strchr(" \t\r\n", text[next]))
                    ++next;
                if (next < text.size() && (text[next] == '}' || text[next] == ']'))
                    break; // a trailing comma: dropped
                out += ',';
            } else {
                out += static_cast<char>(c);
            }
            break;
        case DOUBLE:
            if (c == '\\' && i + 1 < text.size()) {
                out += static_cast<char>(c);
                out += text[++i];
            } else if (c == '"') {
                out += '"';
                where = OUTSIDE;
            } else if (c < 0x20) {
                appendControl(out, c);
            } else {
                out += static_cast<char>(c);
            }
            break;
        case SINGLE:
            if (c == '\\' && i + 1 < text.size()) {
                if (text[i + 1] == '\'') {
                    out += '\'';
                } else {
                    out += static_cast<char>(c);
                    out += text[i + 1];
                }
                ++i;
            } else if (c == '\'') {
                out += '"';
                where = OUTSIDE;
            } else if (c == '"') {
                out += "\\\"";
            } else if (c < 0x20) {
                appendControl(out, c);
            } else {
                out += static_cast<char>(c);
            }
            break;
        }
    }
    return out;
}

JsonTree jsonParseLenient(const char *text) {
    if (!text)
        return nullptr;
    JsonTree strict = jsonParse(text);
    if (strict)
        return strict;
    return jsonParse(jsonNormalizeLenient(text).c_str());
}

std::string jsonJoinMembers(std::string_view a, std::string_view b) {
    std::string out = "{";
    out += a;
    if (!a.empty() && !b.empty())
        out += ',';
    out += b;
    return out + "}";
}
