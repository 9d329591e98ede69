#include "status/run_history_read.h"

#include <glib.h>

#include "platform/json.h"

std::optional<std::vector<std::string>> runHistoryRead(const std::string &path) {
    std::vector<std::string> records;
    g_autofree char *text = nullptr;
    if (!g_file_get_contents(path.c_str(), &text, nullptr, nullptr))
        return records;
    JsonTree root = jsonParse(text);
    const JsonNode *runs =
        root && root->type == JSON_OBJECT ? json_find_first_label(root.get(), "runs") : nullptr;
    if (!runs || !runs->child || runs->child->type != JSON_ARRAY)
        return std::nullopt;
    for (const JsonNode *run = runs->child->child; run; run = run->next)
        if (run->type == JSON_OBJECT)
            records.push_back(json_write(run));
    return records;
}
