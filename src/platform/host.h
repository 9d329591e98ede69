// Host seams: the few side effects that tests must replace so that a pacing pause costs no real
// time and an exit timer that fires does not end the test binary. A replaced exit returns, so
// ending the process is always the last statement of its path.
#pragma once

#include <stdint.h>

int64_t hostNowSeconds();          // wall-clock time, whole seconds
void hostSleepSeconds(unsigned s); // blocking pause of the main loop
void hostExit(int status);         // end the process

struct HostSeams {
    int64_t (*nowSeconds)();
    void (*sleepSeconds)(unsigned seconds);
    void (*exit)(int status);
};

// Replaces the seams; null restores the real ones.
void hostSetSeams(const HostSeams *seams);
