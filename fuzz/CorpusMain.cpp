// SPDX-License-Identifier: Apache-2.0
// Runs a fuzz target on each file of a folder.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "Usage: %s FOLDER\n", argv[0]);
        return EXIT_FAILURE;
    }
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        std::ifstream file(entry.path(), std::ios::binary);
        std::vector<std::uint8_t> bytes(std::istreambuf_iterator<char>(file), {});
        // Shrink the allocation to the file's size, so that the sanitizer detects reading past the
        // end.
        bytes.shrink_to_fit();
        std::printf("%s\n", entry.path().filename().c_str());
        std::fflush(stdout);
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        ++count;
    }
    std::printf("%zu inputs\n", count);
    return count > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
