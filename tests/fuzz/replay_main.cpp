// Replays a fuzz target's inputs without libFuzzer, so that the ordinary compiler and its
// sanitizers run every corpus, crash inputs included, in the ordinary test run.
//   <target> PATH...   each PATH a file, or a directory whose files are replayed in name order
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
// Optional in a target, as with libFuzzer.
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int *argc, char ***argv);

namespace fs = std::filesystem;

static std::vector<fs::path> inputsOf(int argc, char **argv) {
    std::vector<fs::path> inputs;
    for (int i = 1; i < argc; i++) {
        if (!fs::is_directory(argv[i])) {
            inputs.emplace_back(argv[i]);
            continue;
        }
        std::vector<fs::path> files;
        for (const fs::directory_entry &entry : fs::directory_iterator(argv[i]))
            if (entry.is_regular_file())
                files.push_back(entry.path());
        std::sort(files.begin(), files.end());
        inputs.insert(inputs.end(), files.begin(), files.end());
    }
    return inputs;
}

int main(int argc, char **argv) {
    if (LLVMFuzzerInitialize)
        LLVMFuzzerInitialize(&argc, &argv);
    std::vector<fs::path> inputs = inputsOf(argc, argv);
    if (inputs.empty()) {
        fprintf(stderr, "%s: no inputs to replay\n", argv[0]);
        return 1;
    }
    for (const fs::path &path : inputs) {
        std::ifstream file(path, std::ios::binary);
        if (!file) {
            fprintf(stderr, "%s: can't read %s\n", argv[0], path.c_str());
            return 1;
        }
        std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        // A buffer of exactly the input's size, as libFuzzer gives it: reading one byte past the
        // end is then the sanitizer's to see.
        std::unique_ptr<uint8_t[]> data(new uint8_t[bytes.size()]);
        std::copy(bytes.begin(), bytes.end(), data.get());
        printf("Running: %s\n", path.c_str());
        fflush(stdout);
        LLVMFuzzerTestOneInput(data.get(), bytes.size());
    }
    printf("Replayed %zu inputs\n", inputs.size());
    return 0;
}
