// SPDX-License-Identifier: Apache-2.0
#include "core/messages/RollbackJournal.h"

#include "core/Errors.h"
#include "core/RegularFile.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <vector>

namespace tavrin::RollbackJournal {

namespace {

constexpr std::array<unsigned char, 8> magic{0xd9, 0xd5, 0x05, 0xf9, 0x20, 0xa1, 0x63, 0xd7};
/// In place of a number of pages: as many as the file holds.
constexpr std::uint32_t allPages = 0xffffffff;

/// Precedes a group of pages. The first one also determines the sizes for the whole file.
struct Header {
    static constexpr std::size_t size = 28;

    std::uint32_t pages = 0;
    std::uint32_t nonce = 0;
    std::uint32_t sectorSize = 0;
    std::uint32_t pageSize = 0;
};

using Bytes = std::vector<unsigned char>;

std::optional<RegularFile> openIfExists(const std::filesystem::path& path) {
    try {
        return openRegularFile(path);
    } catch (const PlatformError& error) {
        if (error.code() != ENOENT) {
            throw;
        }
        return std::nullopt;
    }
}

/// No value beyond the end of the file.
std::optional<Bytes> read(const RegularFile& file, off_t offset, std::size_t size) {
    Bytes bytes(size);
    const ssize_t count = pread(file.descriptor.get(), bytes.data(), size, offset);
    if (count < 0) {
        throw PlatformError::fromErrno(errno, "Could not read the rollback journal");
    }
    return static_cast<std::size_t>(count) == size ? std::optional(std::move(bytes)) : std::nullopt;
}

std::uint32_t numberAt(const Bytes& bytes, std::size_t position) {
    return (std::uint32_t{bytes[position]} << 24U) | (std::uint32_t{bytes[position + 1]} << 16U) |
           (std::uint32_t{bytes[position + 2]} << 8U) | std::uint32_t{bytes[position + 3]};
}

std::optional<Header> headerAt(const RegularFile& journal, off_t offset) {
    const std::optional<Bytes> bytes = read(journal, offset, Header::size);
    if (!bytes || !std::equal(magic.begin(), magic.end(), bytes->begin())) {
        return std::nullopt;
    }
    return Header{
        numberAt(*bytes, 8), numberAt(*bytes, 12), numberAt(*bytes, 20), numberAt(*bytes, 24)};
}

bool isPossible(const Header& header) {
    constexpr std::uint32_t largest = 65'536;
    return std::has_single_bit(header.sectorSize) && header.sectorSize >= 32 &&
           header.sectorSize <= largest && std::has_single_bit(header.pageSize) &&
           header.pageSize >= 512 && header.pageSize <= largest;
}

std::uint32_t checksum(const Bytes& page, std::uint32_t nonce) {
    std::uint32_t sum = nonce;
    for (std::size_t position = page.size() - 200; position > 0 && position < page.size();
         position -= 200) {
        sum += page[position];
    }
    return sum;
}

} // namespace

bool hasChanged(const std::filesystem::path& copy, const std::filesystem::path& journal) {
    const std::optional<RegularFile> opened = openIfExists(journal);
    if (!opened) {
        return false;
    }
    const RegularFile& former = *opened;
    const RegularFile changed = openRegularFile(copy);
    const std::optional<Header> first = headerAt(former, 0);
    if (!first || !isPossible(*first)) {
        return false;
    }
    const off_t sector = first->sectorSize;
    const std::size_t pageSize = first->pageSize;
    const auto recordSize = static_cast<off_t>(pageSize + 8);
    off_t offset = 0;
    while (const std::optional<Header> header = headerAt(former, offset)) {
        offset += sector;
        for (std::uint32_t page = 0; header->pages == allPages || page < header->pages; ++page) {
            const std::optional<Bytes> number = read(former, offset, 4);
            const std::optional<Bytes> content = read(former, offset + 4, pageSize);
            const std::optional<Bytes> sum =
                read(former, offset + 4 + static_cast<off_t>(pageSize), 4);
            // SQLite, too, stops at a page that was not written completely.
            if (!number || !content || !sum || numberAt(*number, 0) == 0 ||
                numberAt(*sum, 0) != checksum(*content, header->nonce)) {
                return false;
            }
            const off_t place =
                static_cast<off_t>(numberAt(*number, 0) - 1) * static_cast<off_t>(pageSize);
            if (read(changed, place, pageSize) != content) {
                return true;
            }
            offset += recordSize;
        }
        offset = (offset + sector - 1) / sector * sector;
    }
    return false;
}

} // namespace tavrin::RollbackJournal
