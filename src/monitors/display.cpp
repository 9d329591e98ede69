#include "monitors/display.h"

#include <glib.h>
#include <string.h>

#include "common/json_access.h"
#include "common/texts.h"
#include "platform/log.h"
#include "provision/download.h"
#include "service/app_control.h"
#include "service/demo_state.h"
#include "service/service.h"

#define ACTIVITY_CREATE "velto://com.velto.activitymanager/create"

// The activity manager has always been given this text, trailing comma included.
#define ACTIVITY_FORMAT                                                                            \
    "{\"activity\":{\"name\": \"%s\",\"description\": \"%s\",\"trigger\": {\"method\": "           \
    "\"%s\",\"params\": %s,\"where\": %s},\"callback\": {\"method\": \"%s\", \"params\": "         \
    "%s},\"type\":{\"foreground\":true}},\"start\": true,\"replace\": true,}"

#define ACTIVITY_NAME "com.velto.vyxService-power"
#define ACTIVITY_DESCRIPTION "Activity power trigger"
#define ACTIVITY_TRIGGER_METHOD "velto://com.velto.display/control/status"
#define ACTIVITY_TRIGGER_PARAMS "{\"subscribe\" : true }"
#define ACTIVITY_TRIGGER_WHERE "{\"prop\" :\"event\",\"op\" :\"!=\",\"val\" :\"request\" }"
#define ACTIVITY_CALLBACK_METHOD "velto://com.velto.vyxService/displayChange"
#define ACTIVITY_CALLBACK_PARAMS "{}"

#define PLAY_VIDEO_EXTRA "\"playVideo\":true"

// Event and state texts hold at most this many characters.
constexpr size_t DISPLAY_TEXT_LIMIT = 99;

static char spLastDisplayEvent[101] = "";
static char spLastDisplayState[101] = "";
static bool sbIsDockMode = false;

void setPowerMonitor() {
    static const char *const self = "setPowerMonitor";
    g_autofree char *payload =
        g_strdup_printf(ACTIVITY_FORMAT, ACTIVITY_NAME, ACTIVITY_DESCRIPTION,
                        ACTIVITY_TRIGGER_METHOD, ACTIVITY_TRIGGER_PARAMS, ACTIVITY_TRIGGER_WHERE,
                        ACTIVITY_CALLBACK_METHOD, ACTIVITY_CALLBACK_PARAMS);
    vyxLog(LOG_DEBUG, "%s: Activity parameter: %s", self, payload);
    restartExitTimer(EXIT_TIMER_SHORT_MS);
    callService(self, ACTIVITY_CREATE, payload, setPowerMonitorCB);
}

bool setPowerMonitorCB(BusHandle *, BusMessage *reply, void *) {
    JsonTree root = prvKSMessageGetPayloadJSON(reply);
    if (!ignoreJsonResponse(root.get(), "setPowerMonitorCB"))
        vyxLog(LOG_DEBUG, "%s(): %s", "setPowerMonitorCB", logText(KSMessageGetPayload(reply)));
    return true;
}

bool prvIsIndicativeDisplayEvent(const char *event, const char *state, bool dockMode) {
    if (!event || !state)
        return false;
    if (strcmp(event, "displayInactive") == 0 || strcmp(event, "displayOff") == 0 ||
        strcmp(event, "displayDimmed") == 0)
        return true;
    if (strcmp(state, "dimmed") == 0 || strcmp(state, "off") == 0)
        return true;
    return dockMode;
}

void prvFormatLaunchVyxAction() {
    static const char *const self = "prvFormatLaunchVyxAction";
    if (!spLastDisplayEvent[0] && !spLastDisplayState[0]) {
        vyxLog(LOG_DEBUG, "%s: Last 'displayChange' method unavailable", self);
        launchVYXAction("power", nullptr, nullptr);
        return;
    }
    vyxLog(LOG_DEBUG, "%s: Last State: %s", self, spLastDisplayState);
    if (prvIsIndicativeDisplayEvent(spLastDisplayEvent, spLastDisplayState, sbIsDockMode)) {
        vyxLog(LOG_DEBUG, "%s: 'displayChange' state requires video to be started.", self);
        launchVYXAction("power", PLAY_VIDEO_EXTRA, nullptr);
        return;
    }
    vyxLog(LOG_DEBUG, "%s: Ignore 'displayChange' event: [%s], display state: [%s]", self,
           spLastDisplayEvent, spLastDisplayState);
}

static const char *stringValue(const JsonNode *label) {
    return label && label->child && label->child->type == JSON_STRING ? label->child->text
                                                                      : nullptr;
}

// Takes the event of a "displayChange" call into the last-call fields; false when the call is
// malformed or the event is not one the video reacts to.
static bool prvSetExtractDisplayState(BusMessage *message) {
    static const char *const self = "prvSetExtractDisplayState";
    const char *payload = KSMessageGetPayload(message);
    if (!payload) {
        vyxLog(LOG_ALERT, "%s: NULL parameter passed", self);
        return false;
    }
    JsonTree root = prvKSMessageGetPayloadJSON(message);
    if (!root) {
        vyxLog(LOG_DEBUG, "%s: Ignore empty 'displayChange' payload", self);
        return false;
    }
    const JsonNode *activity = prvJsonFindFirstLabel(root.get(), "$activity", self);
    if (!activity) {
        vyxLog(LOG_DEBUG, "%s: 'displayChange' payload doesn't have $activity element: %s", self,
               payload);
        return false;
    }
    const JsonNode *trigger = prvJsonFindFirstLabel(activity->child, "trigger", self);
    if (!trigger) {
        vyxLog(LOG_DEBUG, "%s: 'displayChange' payload doesn't have trigger element: %s", self,
               payload);
        return false;
    }
    const JsonNode *event = prvJsonFindFirstLabel(trigger->child, "event", self);
    const JsonNode *state = prvJsonFindFirstLabel(trigger->child, "state", self);
    const JsonNode *dockMode = prvJsonFindFirstLabel(trigger->child, "dockMode", self);
    if (!event) {
        vyxLog(LOG_DEBUG, "%s: Ignore 'displayChange' payload: %s", self, payload);
        return false;
    }
    bool docked = dockMode && isJsonObjectTrue(dockMode);
    const char *eventText = stringValue(event);
    // Only the event and the dock flag decide here; the state counts once the event is kept.
    if (eventText && !prvIsIndicativeDisplayEvent(eventText, "", docked)) {
        vyxLog(LOG_DEBUG, "%s: Ignore 'displayChange' payload: %s", self, payload);
        return false;
    }

    spLastDisplayEvent[0] = '\0';
    spLastDisplayState[0] = '\0';
    if (eventText)
        copyReceivedText(spLastDisplayEvent, eventText, DISPLAY_TEXT_LIMIT + 1);
    if (const char *stateText = stringValue(state))
        copyReceivedText(spLastDisplayState, stateText, DISPLAY_TEXT_LIMIT + 1);
    sbIsDockMode = docked;
    vyxLog(LOG_DEBUG, "%s: 'displayChange' event: [%s], display state: [%s]", self,
           spLastDisplayEvent, spLastDisplayState);
    return true;
}

bool displayChange(BusHandle *handle, BusMessage *message, void *) {
    static const char *const self = "displayChange";
    restartExitTimer(EXIT_TIMER_SHORT_MS);
    vyxLog(LOG_DEBUG, "%s: About to send response for 'displayChange' method", self);
    sendAffirmativeResponse(handle, message);

    if (prvSetExtractDisplayState(message)) {
        if (isDemoStatusLoaded() != 1) {
            vyxLog(LOG_DEBUG, "%s: 'displayChange' method' received, but demo mode unknown", self);
            determineKovaDemoPref(prvDetermineKovaDemoPrefCB);
        } else if (!isDemoRunning()) {
            // The activity stays down while the demo is off; turning the demo on re-creates it.
            vyxLog(LOG_DEBUG, "%s: Relevant 'displayChange' method received, but demo mode is off",
                   self);
            return true;
        } else if (isVyxAppPresent() == 0) {
            vyxLog(LOG_DEBUG, "%s: VYX app not present, so don't start", self);
        } else {
            prvFormatLaunchVyxAction();
        }
    }
    setPowerMonitor();
    return true;
}

bool prvDetermineKovaDemoPrefCB(BusHandle *handle, BusMessage *reply, void *context) {
    static const char *const self = "prvDetermineKovaDemoPrefCB";
    determineKovaDemoPrefCB(handle, reply, context);
    vyxLog(LOG_DEBUG, "prvDetermineKovaDemoPrefCB: payload %s",
           logText(KSMessageGetPayload(reply)));
    JsonTree root = prvKSMessageGetPayloadJSON(reply);
    if (ignoreJsonResponse(root.get(), self))
        return true;
    if (!isDemoRunning())
        vyxLog(LOG_DEBUG, "%s: 'displayChange' method' received, but demo mode is off", self);
    else if (isVyxAppPresent() != 0)
        prvFormatLaunchVyxAction();
    else
        vyxLog(LOG_DEBUG, "%s: VYX app not present, so don't start", self);
    return true;
}
