#include "service/service.h"

int main() {
    if (serviceStart())
        serviceRun();
    return serviceFinish();
}
