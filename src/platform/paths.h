// Every absolute path of the system goes through here: with VYXSTAGED_ROOT set (simulator, demo,
// tests) it is prefixed with that directory; on the device it is used as written.
#pragma once

#include <string>

std::string vyxPath(const char *absolutePath);
