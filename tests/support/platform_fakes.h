// The platform services the service core talks to, each played by a fake.
#pragma once

#include <vector>

#include "fake_service.h"

struct PlatformFakes {
    FakeService appManager{"com.velto.applicationManager"};
    FakeService systemService{"com.velto.systemservice"};
    FakeService accounts{"com.velto.accountservices"};
    FakeService properties{"com.velto.preferences"};
    FakeService deviceProfile{"com.velto.deviceprofile"};
    FakeService activities{"com.velto.activitymanager"};
    FakeService connMgr{"com.velto.connectionmanager"};
    FakeService installService{"com.velto.appInstallService"};

    std::vector<FakeService *> allFakes() {
        return {&appManager,    &systemService, &accounts, &properties,
                &deviceProfile, &activities,    &connMgr,  &installService};
    }
};
