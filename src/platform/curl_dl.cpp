#include "platform/curl_dl.h"

#include <dlfcn.h>

#include <iterator>

#include "platform/log.h"

decltype(&curl_easy_init) sym_curl_easy_init = nullptr;
decltype(&curl_easy_cleanup) sym_curl_easy_cleanup = nullptr;
decltype(&curl_easy_setopt) sym_curl_easy_setopt = nullptr;
decltype(&curl_easy_perform) sym_curl_easy_perform = nullptr;
decltype(&curl_easy_getinfo) sym_curl_easy_getinfo = nullptr;
decltype(&curl_easy_strerror) sym_curl_easy_strerror = nullptr;
decltype(&curl_slist_append) sym_curl_slist_append = nullptr;
decltype(&curl_slist_free_all) sym_curl_slist_free_all = nullptr;

// clang-format off
#define CURL_SYMBOL(name) {#name, reinterpret_cast<void **>(&sym_##name)}
// clang-format on
static const struct {
    const char *name;
    void **slot;
} s_symbols[] = {
    CURL_SYMBOL(curl_easy_init),    CURL_SYMBOL(curl_easy_cleanup),
    CURL_SYMBOL(curl_easy_setopt),  CURL_SYMBOL(curl_easy_perform),
    CURL_SYMBOL(curl_easy_getinfo), CURL_SYMBOL(curl_easy_strerror),
    CURL_SYMBOL(curl_slist_append), CURL_SYMBOL(curl_slist_free_all),
};
#undef CURL_SYMBOL

// The soname of the library the build compiled against, so the headers and the code agree.
static const char *s_soname = VYX_CURL_SONAME;
static void *s_library = nullptr;

void curlSetLibraryName(const char *soname) {
    s_soname = soname ? soname : VYX_CURL_SONAME;
}

bool curlOpen() {
    static const char *const self = "curlOpen";
    if (s_library)
        return true;
    // NODELETE: the library's global state (its one-time init, TLS back end) outlives any handle.
    void *library = dlopen(s_soname, RTLD_NOW | RTLD_NODELETE);
    if (!library) {
        vyxLog(LOG_ERR, "%s: Can't load %s: %s", self, s_soname, logText(dlerror()));
        return false;
    }
    void *found[std::size(s_symbols)];
    for (size_t i = 0; i < std::size(s_symbols); i++) {
        found[i] = dlsym(library, s_symbols[i].name);
        if (!found[i]) {
            vyxLog(LOG_ERR, "%s: Can't load %s: %s", self, s_soname, logText(dlerror()));
            dlclose(library);
            return false;
        }
    }
    for (size_t i = 0; i < std::size(s_symbols); i++)
        *s_symbols[i].slot = found[i];
    s_library = library;
    return true;
}

CURL *curlEasyInit() {
    return curlOpen() ? sym_curl_easy_init() : nullptr;
}
