// Reading parsed bus payloads and answering method calls with the service's two reply shapes.
#pragma once

#include "platform/bus.h"
#include "platform/json.h"

#define AFFIRMATIVE_REPLY "{\"returnValue\":true}"
#define NEGATIVE_REPLY_FORMAT "{\"returnValue\":false, \"errorCode\":-1, \"errorText\":\"%s\"}"

// Parses a message's payload; null for a null message or a payload that is not JSON.
JsonTree prvKSMessageGetPayloadJSON(BusMessage *message);
JsonNode *prvJsonFindFirstLabel(const JsonNode *node, const char *key, const char *caller);
const char *decodeJsonObjectType(const JsonNode *node);
bool isJsonObjectTrue(const JsonNode *label);
bool isJsonObjectFalse(const JsonNode *label);
// Text of the member `key` inside the object that is the value of `label`; never null.
const char *getJsonString(const JsonNode *label, const char *key);
// Text of a member's own value when it is a string or a number, else ""; logs nothing.
const char *labelText(const JsonNode *label);
// True for the bus's "service is not running" reply, which callers drop unchanged.
bool ignoreJsonResponse(const JsonNode *root, const char *caller);

bool genericCB(BusHandle *handle, BusMessage *reply, void *context);
void sendNegativeResponse(BusHandle *handle, BusMessage *message, const char *errorText);
void sendAffirmativeResponse(BusHandle *handle, BusMessage *message);
// Replies with `payload`; a failure is logged as "<tag>: sending response failed: <error>".
bool replyToMessage(BusHandle *handle, BusMessage *message, const char *payload, const char *tag);
