// What the daemon's fuzz targets share: the service started once per process on busless
// handles, with host seams that cost nothing, a silent log and a root directory of its own.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>

#include "platform/bus.h"

// Starts the service once; later calls do nothing. Returns the root directory.
const std::string &fuzzStartDaemon();
// Puts the state a previous input left behind back to a quiet, idle daemon.
void fuzzResetDaemon();
// Hands `payload` to a reply callback as the bus would.
void fuzzReply(BusMethodHandler callback, const char *payload);
// Writes (or, with null data, removes) a file below the root; `path` is absolute on the device.
void fuzzWriteFile(const char *path, const uint8_t *data, size_t size);

// Reads an input front to back: selector bytes first, the rest as text.
struct FuzzInput {
    const uint8_t *data;
    size_t size;
    uint8_t byte() {
        if (!size)
            return 0;
        size--;
        return *data++;
    }
    // The rest as a C string, as bus payloads arrive (a NUL ends them).
    std::string rest() {
        std::string text(reinterpret_cast<const char *>(data), size);
        return std::string(text.c_str());
    }
};
