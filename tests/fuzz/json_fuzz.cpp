// Bus payloads and store replies reach the parser from outside; any byte string must give a
// tree or null, never a crash, a leak or a hang.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <string>

#include "platform/json.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // The parser reads up to the first NUL, so the input is handed over as a C string.
    std::string text(reinterpret_cast<const char *>(data), size);
    JsonTree tree = jsonParse(text.c_str());
    if (!tree)
        return 0;

    // Walk the tree the way the daemon does: member lookups and typed reads on every object.
    const JsonNode *node = tree.get();
    while (node) {
        if (node->type == JSON_OBJECT) {
            for (const JsonNode *label = node->child; label; label = label->next) {
                if (json_find_first_label(node, label->text) == nullptr)
                    __builtin_trap();
                bool flag;
                const char *value;
                json_get_bool(node, label->text, &flag);
                json_get_string(node, label->text, &value);
            }
        }
        if ((node->type == JSON_STRING || node->type == JSON_NUMBER) && strlen(node->text) > size)
            __builtin_trap();
        if (node->child) {
            node = node->child;
            continue;
        }
        while (node && !node->next)
            node = node->parent;
        if (node)
            node = node->next;
    }
    return 0;
}
