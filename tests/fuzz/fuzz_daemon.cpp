#include "fuzz_daemon.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <stdlib.h>

#include <filesystem>

#include "platform/host.h"
#include "platform/log.h"
#include "platform/paths.h"
#include "provision/config.h"
#include "provision/download.h"
#include "service/demo_state.h"
#include "service/service.h"
#include "store/app_listing.h"
#include "store/profile.h"
#include "sysinfo/download_info.h"

// The clock moves on a minute per reading, so every pacing check that waits for time to pass
// sees it pass, and no input ever waits on a real second.
static int64_t s_now = 1700000000;
static int64_t fakeNow() {
    return s_now += 60;
}
static void noSleep(unsigned) {}
static void noExit(int) {}
static void noLog(int, const char *, void *) {}

// A GLib critical is a fault of the daemon, as much as a crash is. It aborts rather than traps,
// so that libFuzzer catches it and keeps the input.
static GLogWriterOutput abortOnCritical(GLogLevelFlags level, const GLogField *fields, gsize count,
                                        gpointer) {
    GLogWriterOutput written = g_log_writer_standard_streams(level, fields, count, nullptr);
    if (level & (G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_ERROR))
        abort();
    return written;
}

static std::string s_root;

// libFuzzer ends the process with exit(), also after a finding: the root goes with it.
static void removeRoot() {
    std::error_code ignored;
    std::filesystem::remove_all(s_root, ignored);
}

const std::string &fuzzStartDaemon() {
    std::string &root = s_root;
    if (!root.empty())
        return root;
    g_log_set_writer_func(abortOnCritical, nullptr, nullptr);
    static const HostSeams seams = {fakeNow, noSleep, noExit};
    hostSetSeams(&seams);
    vyxLogSetSink(noLog, nullptr);
    // Memory-backed where there is one: every input writes files, and a disk's syncs would
    // set the pace of the whole run.
    g_autofree char *dir = g_file_test("/dev/shm", G_FILE_TEST_IS_DIR)
                               ? g_mkdtemp(g_strdup("/dev/shm/vyxfuzz-XXXXXX"))
                               : g_dir_make_tmp("vyxfuzz-XXXXXX", nullptr);
    root = dir;
    atexit(removeRoot);
    setenv("VYXSTAGED_ROOT", dir, 1);
    g_mkdir_with_parents((root + "/var/usr/velto").c_str(), 0755);
    g_mkdir_with_parents((root + "/usr/velto/vyxstage").c_str(), 0755);
    g_mkdir_with_parents((root + "/media/cryptofs/apps/usr/velto/applications").c_str(), 0755);
    KSSetBuslessForTest(true);
    serviceStart();
    return root;
}

void fuzzResetDaemon() {
    sendDemoStatusResponse("fuzz");
    getsysteminfoMemoryFree();
    setRunLocalFileDownload(false);
    appdownloadMemoryFree();
    clearPkgListJSON();
    setDownloadStateMode(DSM_IDLE, "fuzz");
    clearVyxAppPresent();
    deleteProfileFileList();
    for (const char *path : {DYNAMIC_CONFIG_FILE, CARRIER_CONFIG_FILE, DEFAULT_CONFIG_FILE})
        fuzzWriteFile(path, nullptr, 0);
}

void fuzzReply(BusMethodHandler callback, const char *payload) {
    BusMessage *reply = KSMessageNewForTest(payload);
    callback(getKovaServiceHandle(), reply, nullptr);
    KSMessageUnref(reply);
}

void fuzzWriteFile(const char *path, const uint8_t *data, size_t size) {
    std::string rooted = vyxPath(path);
    if (!data) {
        g_unlink(rooted.c_str());
        return;
    }
    g_file_set_contents(rooted.c_str(), reinterpret_cast<const char *>(data),
                        static_cast<gssize>(size), nullptr);
}
