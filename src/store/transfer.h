// One POST to the store web service on a provisioning run's easy handle. The detail query and the
// profile query differ only in their callbacks, buffers, URL method and body, so the request
// sequence lives here once and each module hands over what is its own.
#pragma once

#include <curl/curl.h>
#include <stddef.h>
#include <stdint.h>

struct StoreTransfer {
    const char *caller; // the request function's name, the prefix of every line logged here
    const char *method; // appended to the server URL as it is
    curl_write_callback writeData;
    curl_read_callback readData;
    curl_write_callback httpHeader;
    curl_debug_callback debugCallback;
    char **body;      // the module's request body, replaced once the URL is set
    uint32_t *offset; // how much of the body read_data has handed over
    char **reply;     // the module's reply text, dropped before the transfer starts
};

// Sets the handle up and runs the transfer; false after any library failure, logged.
// body: a heap text, taken over.
bool runStoreTransfer(CURL *handle, const StoreTransfer &transfer, char *body);

const char *decodeCurlInfoType(curl_infotype type);

// The parts the two modules' callbacks have in common; their logging stays their own.
// A reply chunk up to its first NUL byte, as a heap text of n + 1 bytes.
char *storeCopyChunk(const char *chunk, size_t n);
// Takes the copy over as the reply text or appends it; true when it was appended.
bool storeAppendReply(char **reply, char *copy);
// The next part of the body, at most n bytes; 0 once it has all gone.
size_t storeReadBody(const char *body, uint32_t *offset, char *destination, size_t n);
