#include "provision/run_state.h"

#include "platform/curl_dl.h"
#include "platform/log.h"

StrArray s_ppFiles = nullptr;
unsigned s_FileCount = 0;
StrArray s_ppOptionalFiles = nullptr;
unsigned s_OptionalFileCount = 0;
StrArray s_ppPurgeFiles = nullptr;
unsigned s_PurgeFileCount = 0;
StrArray s_ppProfileFiles = nullptr;

bool s_bHasWhiteList = false;
bool s_bUseOnRamp = true;
bool s_bSetRebootAtEnd = false;
const char *s_KeyFilename = nullptr;

int s_FileInfoOffset = -1;
int s_PurgeFileOffset = -1;

StrArray s_ppInstallFiles = nullptr;
unsigned s_InstallFileCount = 0;
unsigned s_InstallFileCompleted = 0;
int s_InstallMsgCountDown = 0;
int64_t s_LastMsgSecs = 0;

CURL *s_CurlHandle = nullptr;
bool s_bWaitForInternet = false;
bool s_bWaitingInstallStatus = false;

void releaseCurlHandle(const char *caller) {
    if (!s_CurlHandle)
        return;
    if (caller)
        vyxLog(LOG_DEBUG, "%s: Need to cleanup curl handle", caller);
    sym_curl_easy_cleanup(s_CurlHandle);
    s_CurlHandle = nullptr;
}

void freeStrArray(StrArray *array) {
    g_strfreev(*array);
    *array = nullptr;
}
