// Reading the run history back. Apart from the daemon's own history so that `vyxctl`, which
// links none of the daemon's modules, reads the file by the same rules.
#pragma once

#include <optional>
#include <string>
#include <vector>

#define RUN_HISTORY_FILE "/var/usr/velto/vyxstaged-runs.json"

// The records in the file at `path`, oldest first, each a JSON object's text. A missing file
// holds none; a damaged one is std::nullopt.
std::optional<std::vector<std::string>> runHistoryRead(const std::string &path);
