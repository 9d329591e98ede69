#include "platform/host.h"

#include <glib.h>
#include <stdlib.h>
#include <unistd.h>

static int64_t realNow() {
    return g_get_real_time() / G_USEC_PER_SEC;
}
static void realSleep(unsigned seconds) {
    sleep(seconds);
}
static void realExit(int status) {
    exit(status);
}

static const HostSeams s_real = {realNow, realSleep, realExit};
static HostSeams s_seams = s_real;

void hostSetSeams(const HostSeams *seams) {
    s_seams = seams ? *seams : s_real;
}

int64_t hostNowSeconds() {
    return s_seams.nowSeconds();
}
void hostSleepSeconds(unsigned seconds) {
    s_seams.sleepSeconds(seconds);
}
void hostExit(int status) {
    s_seams.exit(status);
}
