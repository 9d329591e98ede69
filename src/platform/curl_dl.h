// libcurl is opened when a provisioning run first needs its transfer handle, not at every start:
// its dependency tree (TLS, Kerberos, LDAP, SSH, ...) is most of what an exec of the daemon would
// otherwise map and relocate, and most starts answer a call or two and never reach the store.
// Every function of the easy interface the daemon calls is resolved here, once, all or none.
#pragma once

#include <curl/curl.h>

// Valid once curlOpen() has returned true; a handle from curlEasyInit() implies that.
extern decltype(&curl_easy_init) sym_curl_easy_init;
extern decltype(&curl_easy_cleanup) sym_curl_easy_cleanup;
extern decltype(&curl_easy_setopt) sym_curl_easy_setopt;
extern decltype(&curl_easy_perform) sym_curl_easy_perform;
extern decltype(&curl_easy_getinfo) sym_curl_easy_getinfo;
extern decltype(&curl_easy_strerror) sym_curl_easy_strerror;
extern decltype(&curl_slist_append) sym_curl_slist_append;
extern decltype(&curl_slist_free_all) sym_curl_slist_free_all;

// Loads the library on the first call; false, with one error line, when it or one of its
// functions is missing. A later call tries again.
bool curlOpen();

// A new easy handle, or null when the library can't be loaded or refuses one: either way the
// run goes without a handle, as it always has when libcurl can't give one.
CURL *curlEasyInit();

// Tests point this at a library that does not exist; null restores the one the build found.
void curlSetLibraryName(const char *soname);
