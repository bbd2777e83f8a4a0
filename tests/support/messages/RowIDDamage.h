// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/messages/SQLiteDatabase.h"

#include <array>
#include <cstdint>
#include <fstream>
#include <ios>
#include <stdexcept>
#include <string>

namespace orvel::test {

/// Damages the file: changes the row id of a message. All messages must be in the main file, in one
/// page and in the order of their ids from 1, and both ids must be below 128.
inline void changeRowID(const std::string& path, int from, int to) {
    std::int64_t rootPage = 0;
    std::int64_t pageSize = 0;
    {
        tavrin::SQLiteDatabase database(path);
        database.query(
            "SELECT rootpage FROM sqlite_master WHERE name = 'message'", {}, [&](const auto& row) {
                rootPage = row.integer(0);
            });
        database.query("PRAGMA page_size", {}, [&](const auto& row) { pageSize = row.integer(0); });
    }
    // In a leaf page of a table: the header, the offsets of the cells, and in each cell the length
    // of its content (one byte here) and the row id (one byte here).
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    const std::int64_t page = (rootPage - 1) * pageSize;
    std::array<char, 2> offset{};
    file.seekg(page + 8 + 2 * (from - 1));
    file.read(offset.data(), offset.size());
    const std::int64_t cell = page + (static_cast<unsigned char>(offset[0]) << 8U) +
                              static_cast<unsigned char>(offset[1]);
    file.seekg(cell + 1);
    if (file.get() != from) {
        throw std::runtime_error("the message is not where it should be");
    }
    file.seekp(cell + 1);
    file.put(static_cast<char>(to));
}

} // namespace orvel::test
