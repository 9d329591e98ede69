// "runStatus": the run under way, or the last one, for whoever asks; with "subscribe":true a
// further reply at every change until the run ends or the caller leaves.
#pragma once

#include <string>

#include "platform/bus.h"

bool runStatus(BusHandle *handle, BusMessage *message, void *context);
// The open run's record changed, or the run ended with this record.
void runStatusChanged(const std::string &record, bool ended);
// Held subscriptions get their last reply now: the process is about to end.
void runStatusRelease();
