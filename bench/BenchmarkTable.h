// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvel::bench {

/// One measured line: a figure, the floor it was measured against in the same run, and the target.
struct Line {
    std::string what;
    std::string measured;
    std::string floor;
    /// Measured ÷ floor, or the figure itself where the target is absolute.
    double value = 0;
    double target = 0;
    std::string unit;
};

/// The lines as a table of the Markdown kind.
[[nodiscard]] std::string table(const std::vector<Line>& lines);

[[nodiscard]] double median(std::vector<double> values);

/// Processor, cores, memory, file system of the directory, kernel, compiler and libraries.
[[nodiscard]] std::string machineDescription(const std::filesystem::path& directory);

/// Replaces what stands between the two marker lines of that name in the document. Throws
/// `std::runtime_error` when they are not there.
void writeFigures(
    const std::filesystem::path& document, std::string_view name, const std::string& figures);

} // namespace orvel::bench
