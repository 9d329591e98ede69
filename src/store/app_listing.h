// The application manager's installed-package listing: the cached listing, the listing that
// started the current provisioning run, the one reader of its packages with the user-installed
// rule, and the reconciliation that tells the run's last step which user-installed packages are
// new or changed.
#pragma once

#include "platform/bus.h"
#include "platform/json.h"

bool listPkgsCB(BusHandle *handle, BusMessage *reply, void *context);
bool listPkgsCBRun(BusHandle *handle, BusMessage *reply, void *context);
bool listPkgsCBReconcile(BusHandle *handle, BusMessage *reply, void *context);

// Which members may hold a listing's packages: the delete list reads "apps" only, the other
// readers take "packages" when there is no "apps".
enum class ListingMembers { Apps, AppsOrPackages };

// The member of a parsed listing that holds its packages, or null. With a caller the lookups log
// under that name (prvJsonFindFirstLabel: a missing root or one that is not an object); without
// one they are silent.
const JsonNode *findListingPackages(const JsonNode *root, ListingMembers members,
                                    const char *caller);

// The user-installed rule, for one element of a listing's package array: "userInstalled" true,
// or false with the icon in the user application area (isAppUserInstalled); an element with an
// icon but no id is skipped. True for a user-installed package with a non-empty id; `id` gets
// it, and `version`, when given, the version text (looked up after "userInstalled", as the
// lookups log under `caller`).
bool isUserInstalledPackage(const JsonNode *app, const char *caller, const char **id,
                            const char **version);
// The icon text is compared as the listing delivers it, escaped slashes included.
bool isAppUserInstalled(const char *packageId, const char *icon);
// The user-installed packages of a listing, ";"-joined, each "id" or "id<TAB>version"; a heap
// text, or null when there are none.
char *createPkgList(const char *listing, bool versioned, unsigned *count, const char *label);

const char *getPkgListJSON();
bool isFileDownloadInProcess();
void clearPkgListJSON();
void getapplicationinfoMemoryFree();
