// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvel::bench {

/// A row of the table: the measured value, the reference value of the same run, and the target.
struct Line {
    std::string what;
    std::string measured;
    std::string floor;
    /// Measured ÷ reference, or the measured value if the target is absolute.
    double value = 0;
    double target = 0;
    std::string unit;
};

/// The rows as a Markdown table.
[[nodiscard]] std::string table(const std::vector<Line>& lines);

[[nodiscard]] double median(std::vector<double> values);

/// CPU, threads, memory, operating system, file system of the directory, compiler and libraries.
[[nodiscard]] std::string machineDescription(const std::filesystem::path& directory);

/// Replaces the text between the two markers with that name in the document. Throws
/// `std::runtime_error` if the markers are missing.
void writeFigures(
    const std::filesystem::path& document, std::string_view name, const std::string& figures);

} // namespace orvel::bench
