// The last runs' records, kept in a small JSON file beside the daemon's other files so that they
// outlive the process, which ends itself seconds after each run.
#pragma once

#include <string>
#include <vector>

#include "status/run_history_read.h"

constexpr size_t RUN_HISTORY_MAX = 20;

// The records, oldest first. A missing file is empty; so is a damaged one, with one log line.
std::vector<std::string> runHistoryLoad();
// Adds a record (a JSON object) and keeps the last RUN_HISTORY_MAX, written as a whole.
bool runHistoryAppend(const std::string &record);

// Every whole-file write goes through a temporary file beside its target; a kill in between
// leaves that file behind. Removes such leftovers of this daemon's own files.
void removeWriteLeftovers();

// A JSON string literal of `text` (invalid UTF-8 repaired), quotes included.
std::string jsonQuoted(const char *text);
