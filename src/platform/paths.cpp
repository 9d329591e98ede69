#include "platform/paths.h"

#include <stdlib.h>

std::string vyxPath(const char *absolutePath) {
    std::string path = absolutePath ? absolutePath : "";
    const char *root = getenv("VYXSTAGED_ROOT");
    if (!root || !*root)
        return path;
    std::string rooted = root;
    while (!rooted.empty() && rooted.back() == '/')
        rooted.pop_back();
    return rooted + path;
}
