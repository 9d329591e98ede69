#include <malloc.h>

#include "service/service.h"

int main() {
    // Our one thread and GDBus's worker pass the same messages back and forth; a second malloc
    // arena for the worker would only hold a copy of the largest listing for good.
    mallopt(M_ARENA_MAX, 1);
    if (serviceStart())
        serviceRun();
    return serviceFinish();
}
