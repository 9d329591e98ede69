#include "common/json_access.h"

#include <glib.h>
#include <stdlib.h>

#include "platform/log.h"

JsonTree prvKSMessageGetPayloadJSON(BusMessage *message) {
    if (!message) {
        vyxLog(LOG_ERR, "%s: Message parameter is NULL", "prvKSMessageGetPayloadJSON");
        return nullptr;
    }
    return jsonParse(KSMessageGetPayload(message));
}

JsonNode *prvJsonFindFirstLabel(const JsonNode *node, const char *key, const char *caller) {
    if (!caller)
        caller = "prvJsonFindFirstLabel";
    if (!key || !*key || !node) {
        vyxLog(LOG_ALERT, "%s: Bad param in call to %s: name: %s", caller, "prvJsonFindFirstLabel",
               logText(key));
        return nullptr;
    }
    if (node->type != JSON_OBJECT) {
        vyxLog(LOG_DEBUG, "%s: Invalid element type of %s in call to %s: name: %s", caller,
               decodeJsonObjectType(node), "prvJsonFindFirstLabel", key);
        return nullptr;
    }
    return json_find_first_label(node, key);
}

const char *decodeJsonObjectType(const JsonNode *node) {
    if (!node)
        return "NULL";
    switch (node->type) {
    case JSON_STRING:
        return "string";
    case JSON_NUMBER:
        return "number";
    case JSON_OBJECT:
        return "object";
    case JSON_ARRAY:
        return "array";
    case JSON_TRUE:
        return "boolean:true";
    case JSON_FALSE:
        return "boolean:false";
    case JSON_NULL:
        return "null type";
    }
    return "unknown";
}

// Booleans arrive as literals from some services and as strings from others.
static bool isJsonObjectLiteral(const JsonNode *label, const char *word, json_value_type literal) {
    if (!label || !label->child)
        return false;
    const JsonNode *value = label->child;
    if (value->type == JSON_STRING)
        return value->text && g_ascii_strcasecmp(value->text, word) == 0;
    return value->type == literal;
}

bool isJsonObjectTrue(const JsonNode *label) {
    return isJsonObjectLiteral(label, "true", JSON_TRUE);
}

bool isJsonObjectFalse(const JsonNode *label) {
    return isJsonObjectLiteral(label, "false", JSON_FALSE);
}

const char *getJsonString(const JsonNode *label, const char *key) {
    if (!label || !label->child) {
        vyxLog(LOG_DEBUG, "%s: Invalid base element for %s", "getJsonString", logText(key));
        return "";
    }
    const JsonNode *member = prvJsonFindFirstLabel(label->child, key, "getJsonString");
    if (!member)
        return "";
    const JsonNode *value = member->child;
    if (value && (value->type == JSON_STRING || value->type == JSON_NUMBER) && value->text)
        return value->text;
    vyxLog(LOG_DEBUG, "%s: Element for %s doesn't exist or isn't a string [%s]", "getJsonString",
           key, decodeJsonObjectType(value));
    return "";
}

const char *labelText(const JsonNode *label) {
    const JsonNode *value = label ? label->child : nullptr;
    if (value && (value->type == JSON_STRING || value->type == JSON_NUMBER) && value->text)
        return value->text;
    return "";
}

bool ignoreJsonResponse(const JsonNode *root, const char *caller) {
    if (!root)
        return false;
    const JsonNode *returnValue = prvJsonFindFirstLabel(root, "returnValue", "ignoreJsonResponse");
    const JsonNode *errorText = prvJsonFindFirstLabel(root, "errorText", "ignoreJsonResponse");
    const JsonNode *errorCode = prvJsonFindFirstLabel(root, "errorCode", "ignoreJsonResponse");
    const JsonNode *serviceName = prvJsonFindFirstLabel(root, "serviceName", "ignoreJsonResponse");
    if (!errorText || !errorCode || !serviceName || !isJsonObjectFalse(returnValue))
        return false;
    const JsonNode *service = serviceName->child;
    if (!service || service->type != JSON_STRING)
        return false;
    const JsonNode *code = errorCode->child;
    const char *codeText = code && code->text ? code->text : "";
    if (!code || code->type != JSON_NUMBER || strtol(codeText, nullptr, 10) != -1) {
        vyxLog(LOG_DEBUG, "%s: Unexpected value in errorCode: %s", logText(caller), codeText);
        return false;
    }
    g_autofree char *expected = g_strdup_printf("%s is not running", service->text);
    const char *text = errorText->child && errorText->child->text ? errorText->child->text : "";
    if (g_str_has_prefix(text, expected)) {
        vyxLog(LOG_DEBUG, "%s: Ignoring response (errorText: %s)", logText(caller), text);
        return true;
    }
    vyxLog(LOG_DEBUG, "%s: errorText [%s] doesn't start with [%s]", logText(caller), text,
           expected);
    return false;
}

bool genericCB(BusHandle *, BusMessage *reply, void *) {
    JsonTree root = prvKSMessageGetPayloadJSON(reply);
    if (ignoreJsonResponse(root.get(), "genericCB"))
        return true;
    vyxLog(LOG_DEBUG, "genericCB(): %s", logText(KSMessageGetPayload(reply)));
    return true;
}

bool replyToMessage(BusHandle *handle, BusMessage *message, const char *payload, const char *tag) {
    BusError error;
    KSErrorInit(&error);
    bool sent = KSMessageReply(handle, message, payload, &error);
    if (!sent)
        vyxLog(LOG_ERR, "%s: sending response failed: %s", tag, logText(error.message));
    KSErrorFree(&error);
    return sent;
}

void sendNegativeResponse(BusHandle *handle, BusMessage *message, const char *errorText) {
    g_autofree char *payload =
        g_strdup_printf(NEGATIVE_REPLY_FORMAT, errorText ? errorText : "Unknown error");
    vyxLog(LOG_DEBUG, "%s: %s", "sendNegativeResponse", payload);
    replyToMessage(handle, message, payload, "sendNegativeResponse");
}

void sendAffirmativeResponse(BusHandle *handle, BusMessage *message) {
    vyxLog(LOG_DEBUG, "%s: %s", "sendAffirmativeResponse", AFFIRMATIVE_REPLY);
    replyToMessage(handle, message, AFFIRMATIVE_REPLY, "sendAffirmativeResponse");
}
