// Whole-file copy and the copy of the service's bus role file into the role directories.
#pragma once

#include <stddef.h>

#define ROLE_FILE_SOURCE "/usr/velto/vyxstage/com.velto.vyx.service.json"
#define ROLE_DIR_PRIVATE "/var/velto/ks2/roles/prv/"
#define ROLE_DIR_PUBLIC "/var/velto/ks2/roles/pub/"
#define ROLE_FILE_NAME "com.velto.vyx.service.json"
// The package that brings the service's own data, the role file among it.
#define VYX_SERVICE_DATA_PACKAGE "com.velto.vyx"

// Paths are used as given: callers pass paths already rooted with vyxPath().
bool prvCopyFile(const char *source, const char *destination);
void copyRoleFiles();
bool getPackageFromApp(char *buffer, const char *appId, size_t size);
