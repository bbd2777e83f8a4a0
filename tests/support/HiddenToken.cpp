// SPDX-License-Identifier: Apache-2.0
#include "tests/support/HiddenToken.h"

#include <QRandomGenerator>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string_view>
#include <system_error>
#include <vector>

namespace orvel::test {

namespace {

constexpr std::size_t length = 64;
/// Copies are found by this part of the token.
constexpr std::size_t partBegin = 32;
constexpr std::size_t partLength = 24;
static_assert(partBegin < HiddenToken::split && HiddenToken::split < partBegin + partLength);
constexpr char disguise = '\x80';

/// The search's own memory, which does not count.
class SearchMemory final {
public:
    SearchMemory()
        : memory_(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {
        if (memory_ == MAP_FAILED) {
            throw std::system_error(errno, std::generic_category(), "mmap");
        }
    }
    ~SearchMemory() { munmap(memory_, size); }
    SearchMemory(const SearchMemory&) = delete;
    SearchMemory& operator=(const SearchMemory&) = delete;

    [[nodiscard]] char* part() const { return static_cast<char*>(memory_); }
    [[nodiscard]] char* buffer() const { return part() + partLength; }
    [[nodiscard]] bool contains(std::uintptr_t address) const {
        return address - reinterpret_cast<std::uintptr_t>(memory_) < size;
    }

    static constexpr std::size_t bufferSize = std::size_t{1} << 20U;
    static constexpr std::size_t size = partLength + bufferSize;

private:
    void* memory_;
};

/// A file in /proc/self.
class ProcessFile final {
public:
    explicit ProcessFile(const char* path) : descriptor_(open(path, O_RDONLY | O_CLOEXEC)) {
        if (descriptor_ < 0) {
            throw std::system_error(errno, std::generic_category(), path);
        }
    }
    ~ProcessFile() { close(descriptor_); }
    ProcessFile(const ProcessFile&) = delete;
    ProcessFile& operator=(const ProcessFile&) = delete;

    /// Returns the number of bytes read, or 0 if the memory is unreadable.
    std::size_t read(void* bytes, std::size_t size, std::size_t from) const {
        return static_cast<std::size_t>(
            std::max<ssize_t>(0, pread(descriptor_, bytes, size, static_cast<off_t>(from))));
    }

private:
    int descriptor_;
};

/// Whether any of the pages were ever used. A sanitizer reserves far more than it uses, and reading
/// all of it would take seconds.
bool isUsed(const ProcessFile& pagemap, std::uintptr_t begin, std::size_t size) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t first = begin / page;
    std::vector<std::uint64_t> entries((begin + size - 1) / page - first + 1);
    const std::size_t count = pagemap.read(
        entries.data(), entries.size() * sizeof(entries[0]), first * sizeof(entries[0]));
    entries.resize(count / sizeof(entries[0]));
    // Bit 63 means present, bit 62 swapped out.
    return std::ranges::any_of(entries, [](std::uint64_t entry) { return entry >> 62U != 0; });
}

} // namespace

HiddenToken::HiddenToken() : disguised_(length, '\0') {
    for (char& character : disguised_) {
        const int letter = QRandomGenerator::system()->bounded(26);
        character = static_cast<char>(('a' + letter) ^ disguise);
    }
}

std::string HiddenToken::text() const {
    std::string text = disguised_;
    for (char& character : text) {
        character = static_cast<char>(character ^ disguise);
    }
    return text;
}

std::size_t HiddenToken::copiesInMemory() const {
    const SearchMemory searchMemory;
    for (std::size_t index = 0; index < partLength; ++index) {
        searchMemory.part()[index] = static_cast<char>(disguised_[partBegin + index] ^ disguise);
    }
    const std::string_view part(searchMemory.part(), partLength);

    std::ostringstream maps;
    maps << std::ifstream("/proc/self/maps").rdbuf();
    const ProcessFile memory("/proc/self/mem");
    const ProcessFile pagemap("/proc/self/pagemap");
    std::size_t copies = 0;
    std::istringstream lines(maps.str());
    for (std::string line; std::getline(lines, line);) {
        unsigned long begin = 0;
        unsigned long end = 0;
        char writable = '-';
        // Larger mappings belong to a sanitizer.
        if (std::sscanf(line.c_str(), "%lx-%lx r%c", &begin, &end, &writable) != 3 ||
            writable != 'w' || end - begin > (1UL << 30U)) {
            continue;
        }
        while (end - begin >= partLength) {
            const std::size_t wanted = std::min<std::size_t>(end - begin, SearchMemory::bufferSize);
            if (!isUsed(pagemap, begin, wanted)) {
                begin += wanted - partLength + 1;
                continue;
            }
            const std::size_t count = memory.read(searchMemory.buffer(), wanted, begin);
            if (count < partLength) {
                break;
            }
            const std::string_view bytes(searchMemory.buffer(), count);
            for (std::size_t found = bytes.find(part); found != std::string_view::npos;
                 found = bytes.find(part, found + 1)) {
                copies += searchMemory.contains(begin + found) ? 0 : 1;
            }
            // Overlap the next piece with this one, in case a copy lies across the border.
            begin += bytes.size() - partLength + 1;
        }
    }
    return copies;
}

} // namespace orvel::test
