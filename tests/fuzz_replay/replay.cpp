// Runs a fuzz target over every file of a folder; the target itself ends the program where the library is wrong.
#include <cstdio>
#include <filesystem>

#include "sandbox.h"
#include "target.h"

int main(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s CORPUS\n", argv[0]);
        return 2;
    }
    LLVMFuzzerInitialize(&argc, &argv);

    int inputs = 0;
    for (const auto &entry : std::filesystem::directory_iterator(argv[1])) {
        std::fprintf(stderr, "%s\n", entry.path().c_str());
        const std::string input = support::read_file(entry.path());
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(input.data()), input.size());
        ++inputs;
    }
    std::printf("%d inputs\n", inputs);
    return inputs > 0 ? 0 : 1;  // an empty corpus proves nothing
}
