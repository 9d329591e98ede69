#include "store/transfer.h"

#include <glib.h>
#include <string.h>

#include "platform/curl_dl.h"
#include "platform/log.h"
#include "status/run_record.h"
#include "sysinfo/sysinfo.h"

static const char *const s_contentType = "Content-Type: application/json";

const char *decodeCurlInfoType(curl_infotype type) {
    switch (type) {
    case CURLINFO_TEXT:
        return "info";
    case CURLINFO_HEADER_IN:
        return "Head-Rcvd";
    case CURLINFO_HEADER_OUT:
        return "Head-Sent";
    case CURLINFO_DATA_IN:
        return "Data-Rcvd";
    case CURLINFO_DATA_OUT:
        return "Data-Sent";
    default:
        return "??";
    }
}

// Every option is set again on each request: the handle serves a whole run, and whatever the
// previous request left on it (callbacks of the other module, a dead error buffer or header
// list) must not reach this one.
static bool prvSetUp(CURL *handle, const StoreTransfer &t, char *errorBuffer, char **body) {
    const char *caller = t.caller;
    CURLcode code = sym_curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, errorBuffer);
    if (code != CURLE_OK) {
        vyxLog(LOG_ERR, "%s: Can't set error buffer [%s]", caller, sym_curl_easy_strerror(code));
        return false;
    }
    code = sym_curl_easy_setopt(handle, CURLOPT_DEBUGFUNCTION, t.debugCallback);
    if (code != CURLE_OK) {
        vyxLog(LOG_ERR, "%s: Error [%s] setting debug handler", caller,
               sym_curl_easy_strerror(code));
        return false;
    }
    g_clear_pointer(t.reply, g_free);
    code = sym_curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, t.writeData);
    if (code != CURLE_OK) {
        vyxLog(LOG_ERR, "%s: Error [%s] setting write handler", caller,
               sym_curl_easy_strerror(code));
        return false;
    }
    code = sym_curl_easy_setopt(handle, CURLOPT_POST, 1L);
    if (code != CURLE_OK) {
        vyxLog(LOG_ERR, "%s: Error [%s] setting POST", caller, sym_curl_easy_strerror(code));
        return false;
    }
    // The server address comes with its trailing separator; the method name follows at once.
    g_autofree char *url = g_strdup_printf("%s%s", getServerUrl(), t.method);
    vyxLog(LOG_DEBUG, "%s: URL:%s", caller, url);
    code = sym_curl_easy_setopt(handle, CURLOPT_URL, url);
    if (code != CURLE_OK) {
        vyxLog(LOG_ERR, "%s: Error [%s] setting URL: %s", caller, sym_curl_easy_strerror(code),
               url);
        return false;
    }
    g_free(*t.body);
    *t.offset = 0;
    *t.body = g_steal_pointer(body);
    vyxLog(LOG_DEBUG, "%s: body:%s", caller, *t.body);
    code = sym_curl_easy_setopt(handle, CURLOPT_READFUNCTION, t.readData);
    if (code != CURLE_OK) {
        vyxLog(LOG_ERR, "%s: Error [%s] setting read function", caller,
               sym_curl_easy_strerror(code));
        return false;
    }
    code = sym_curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, t.httpHeader);
    if (code != CURLE_OK) {
        vyxLog(LOG_ERR, "%s: Error [%s] setting HTTP Header function", caller,
               sym_curl_easy_strerror(code));
        return false;
    }
    return true;
}

// What the store answered, for the run's record only.
static void noteStoreResult(CURL *handle, const char *method, CURLcode code, const char *detail) {
    long status = 0;
    if (code == CURLE_OK)
        sym_curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
    runRecordStoreResult(method, status, code == CURLE_OK ? nullptr : sym_curl_easy_strerror(code),
                         detail);
}

bool runStoreTransfer(CURL *handle, const StoreTransfer &t, char *body) {
    g_autofree char *pending = body; // becomes the module's body once the URL is set
    if (!handle) {
        vyxLog(LOG_ERR, "%s: bad handle", t.caller);
        return false;
    }
    char errorBuffer[CURL_ERROR_SIZE] = {};
    if (!prvSetUp(handle, t, errorBuffer, &pending))
        return false;

    // The body's size reaches the server only through this line: no post-field size is set.
    g_autofree char *length = g_strdup_printf("Content-Length: %d", (int)strlen(*t.body));
    struct curl_slist *headers = sym_curl_slist_append(nullptr, s_contentType);
    headers = sym_curl_slist_append(headers, length);
    bool done = false;
    CURLcode code = sym_curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers);
    if (code != CURLE_OK) {
        vyxLog(LOG_ERR, "%s: Error [%s] setting content type", t.caller,
               sym_curl_easy_strerror(code));
    } else if ((code = sym_curl_easy_perform(handle)) != CURLE_OK) {
        vyxLog(LOG_DEBUG, "%s: Error [%s]: %s", t.caller, sym_curl_easy_strerror(code),
               errorBuffer);
    } else {
        done = true;
    }
    noteStoreResult(handle, t.method, code, errorBuffer);
    sym_curl_slist_free_all(headers);
    return done;
}

char *storeCopyChunk(const char *chunk, size_t n) {
    char *copy = static_cast<char *>(g_malloc0(n + 1));
    strncpy(copy, chunk, n);
    return copy;
}

bool storeAppendReply(char **reply, char *copy) {
    if (!*reply) {
        *reply = copy;
        return false;
    }
    char *joined = g_strconcat(*reply, copy, nullptr);
    g_free(*reply);
    g_free(copy);
    *reply = joined;
    return true;
}

size_t storeReadBody(const char *body, uint32_t *offset, char *destination, size_t n) {
    size_t length = strlen(body);
    if (*offset >= length || n == 0)
        return 0;
    size_t k = MIN(length - *offset, n);
    memcpy(destination, body + *offset, k);
    *offset += k;
    return k;
}
