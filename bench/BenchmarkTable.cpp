// SPDX-License-Identifier: Apache-2.0
#include "bench/BenchmarkTable.h"

#include <curl/curlver.h>
#include <fmt/format.h>
#include <sqlite3.h>
#include <sys/utsname.h>
#include <sys/vfs.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string_view>
#include <thread>

namespace orvel::bench {

namespace {

std::string valueIn(const char* file, std::string_view key) {
    std::ifstream stream(file);
    std::string line;
    while (std::getline(stream, line)) {
        if (line.starts_with(key)) {
            const auto colon = line.find_first_of(":=");
            const auto begin = line.find_first_not_of(" \t\"", colon + 1);
            const auto end = line.find_last_not_of(" \t\"");
            return begin == std::string::npos ? "" : line.substr(begin, end - begin + 1);
        }
    }
    return "unknown";
}

std::string fileSystem(const std::filesystem::path& directory) {
    struct statfs info {};
    if (statfs(directory.c_str(), &info) != 0) {
        return "unknown";
    }
    switch (static_cast<unsigned long>(info.f_type)) {
    case 0xEF53UL:
        return "ext4";
    case 0x9123683EUL:
        return "btrfs";
    case 0x58465342UL:
        return "xfs";
    case 0x01021994UL:
        return "tmpfs";
    case 0x794C7630UL:
        return "overlayfs";
    default:
        return fmt::format("type {:#x}", static_cast<unsigned long>(info.f_type));
    }
}

} // namespace

std::string table(const std::vector<Line>& lines) {
    std::string text = "| What | Measured | Floor of the same run | Result | Target | |\n"
                       "|---|---|---|---|---|---|\n";
    for (const Line& line : lines) {
        text += fmt::format(
            "| {} | {} | {} | {:.2f}{} | ≤ {:g}{} | {} |\n",
            line.what,
            line.measured,
            line.floor,
            line.value,
            line.unit,
            line.target,
            line.unit,
            line.value <= line.target ? "met" : "**missed**");
    }
    return text;
}

double median(std::vector<double> values) {
    std::ranges::sort(values);
    return values[values.size() / 2];
}

std::string machineDescription(const std::filesystem::path& directory) {
    utsname system{};
    uname(&system);
    return fmt::format(
        "Measured on {} ({} hardware threads, {} of memory), {}, Linux {}, file system {}; {}, "
        "SQLite {}, libcurl {}; release build.\n",
        valueIn("/proc/cpuinfo", "model name"),
        std::thread::hardware_concurrency(),
        valueIn("/proc/meminfo", "MemTotal"),
        valueIn("/etc/os-release", "PRETTY_NAME"),
        system.release,
        fileSystem(directory),
        ORVEL_COMPILER,
        sqlite3_libversion(),
        LIBCURL_VERSION);
}

void writeFigures(
    const std::filesystem::path& document, std::string_view name, const std::string& figures) {
    const std::string beginMarker = fmt::format("<!-- {}: begin -->\n", name);
    const std::string endMarker = fmt::format("<!-- {}: end -->", name);
    std::ifstream input(document, std::ios::binary);
    std::string text(std::istreambuf_iterator<char>(input), {});
    const auto begin = text.find(beginMarker);
    const auto end = text.find(endMarker);
    if (begin == std::string::npos || end == std::string::npos || end < begin) {
        throw std::runtime_error(document.string() + " has no markers for the figures.");
    }
    const auto first = begin + beginMarker.size();
    text.replace(first, end - first, figures);
    std::ofstream output(document, std::ios::binary | std::ios::trunc);
    output << text;
    if (!output.flush()) {
        throw std::runtime_error("Could not write " + document.string() + ".");
    }
}

} // namespace orvel::bench
