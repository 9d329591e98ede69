// Gathering of the five system-information items from the platform services.
#pragma once

#include "platform/bus.h"

enum SystemInfoItem {
    SI_ACCOUNT_TOKEN = 0,
    SI_CARRIER,
    SI_DEVICE_ID,
    SI_LOCALE,
    SI_SERVER_URL,
    SI_COUNT,
};

enum HardwareType {
    HW_UNDEFINED = -1,
    HW_UNKNOWN = 0,
    HW_FENLO = 1,
    HW_TARSK = 2,
    HW_OMBREL = 3,
};

const char *getAccountToken(unsigned index); // 0 token, 1 alias, 2 state, 3 unique id
const char *getCarrierId();
const char *getDeviceId();
const char *getLocale();
const char *getServerUrl();
bool validAccountTokens();
int getHardwareType();
void setValidAccountTokens(int tristate);

// Each of these three logs the five queries' status under the caller's name.
bool isSystemInfoRequestInProcess(const char *caller);
bool isAllSystemInfoRequestsEnded(const char *caller);
bool isAllSystemInfoPresent(const char *caller);
bool requestSystemInfo();

bool accountTokenCB(BusHandle *handle, BusMessage *reply, void *context);
bool carrierCB(BusHandle *handle, BusMessage *reply, void *context);
bool deviceIdCB(BusHandle *handle, BusMessage *reply, void *context);
bool localeCB(BusHandle *handle, BusMessage *reply, void *context);
bool serverUrlCB(BusHandle *handle, BusMessage *reply, void *context);
