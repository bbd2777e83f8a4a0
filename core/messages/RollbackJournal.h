// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

/// The file "-journal" beside a database without a write-ahead log. It holds the former content of
/// the pages that a transaction changes, until the transaction is finished.
namespace tavrin::RollbackJournal {

/// Whether the copy contains a part of the unfinished transaction, so that it is not consistent.
/// False without a journal, and while the transaction has not changed the database file. Throws
/// `PlatformError` if a file cannot be read.
[[nodiscard]] bool
hasChanged(const std::filesystem::path& copy, const std::filesystem::path& journal);

} // namespace tavrin::RollbackJournal
