#include "provision/run.h"

#include "platform/log.h"
#include "status/run_record.h"

static DownloadStateMode s_StateMode = DSM_IDLE;

DownloadStateMode getDownloadStateMode() {
    return s_StateMode;
}

bool expectDownloadStateMode(std::initializer_list<DownloadStateMode> expected,
                             const char *caller) {
    for (DownloadStateMode mode : expected)
        if (mode == s_StateMode)
            return true;
    vyxLog(LOG_ALERT, "%s: Unexpected state mode: %d", logText(caller),
           static_cast<int>(s_StateMode));
    return false;
}

void setDownloadStateMode(DownloadStateMode mode, const char *caller,
                          std::initializer_list<DownloadStateMode> expected) {
    if (expected.size())
        expectDownloadStateMode(expected, caller);
    vyxLog(LOG_DEBUG, "%s: Download state mode changed from %d to %d", logText(caller),
           static_cast<int>(s_StateMode), static_cast<int>(mode));
    runRecordMode(mode);
    s_StateMode = mode;
}
