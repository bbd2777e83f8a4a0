// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

namespace orvel::test {

/// Empty if there is no such file.
inline std::string contentOf(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// Creates or replaces the file.
inline void writeFile(const std::filesystem::path& file, std::string_view content) {
    std::ofstream(file, std::ios::binary) << content;
}

} // namespace orvel::test
