// SPDX-License-Identifier: Apache-2.0
#include "tests/campaign/IdleCost.h"

#include <fmt/format.h>
#include <malloc.h>

#include <filesystem>
#include <fstream>
#include <iterator>

// Only in programs that are built with a sanitizer, which replaces the allocator.
extern "C" __attribute__((weak)) std::size_t __sanitizer_get_current_allocated_bytes();

namespace orvel::test {

namespace {

std::size_t entriesOf(const char* folder) {
    return static_cast<std::size_t>(std::distance(
        std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator()));
}

} // namespace

std::vector<std::string>
IdleCost::changesSince(const IdleCost& before, std::size_t maximumGrowth) const {
    std::vector<std::string> changes;
    for (const auto& [name, count] : counts) {
        if (const std::size_t earlier = before.counts.at(name); count != earlier) {
            changes.push_back(
                fmt::format("{} {} when idle, not {} as before", count, name, earlier));
        }
    }
    if (allocatedBytes > before.allocatedBytes + maximumGrowth) {
        changes.push_back(fmt::format(
            "the memory has grown by {} bytes", allocatedBytes - before.allocatedBytes));
    }
    return changes;
}

std::string IdleCost::summary() const {
    std::string text = fmt::format("{} bytes", allocatedBytes);
    for (const auto& [name, count] : counts) {
        text += fmt::format(", {} {}", count, name);
    }
    return text;
}

std::size_t allocatedBytes() {
    return __sanitizer_get_current_allocated_bytes != nullptr
               ? __sanitizer_get_current_allocated_bytes()
               : mallinfo2().uordblks;
}

std::size_t threadCount() {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(entry.path() / "comm"), name);
        count += name == "Thread (pooled)" ? 0 : 1;
    }
    return count;
}

std::size_t descriptorCount() {
    return entriesOf("/proc/self/fd");
}

} // namespace orvel::test
