// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace tavrin {

class CancellationToken;

/// Copies one file by the cheapest way the file system has.
class FileCopier {
public:
    FileCopier() = default;
    FileCopier(const FileCopier&) = delete;
    FileCopier& operator=(const FileCopier&) = delete;
    virtual ~FileCopier() = default;

    /// Makes `destination`, which must not exist, a copy of `source` that only the owner can read.
    /// Throws `PlatformError` when that fails and `TaskCancelled` when the token is cancelled in
    /// between; either way the incomplete destination is removed. Blocks; any thread.
    virtual void copy(
        const std::filesystem::path& source,
        const std::filesystem::path& destination,
        const CancellationToken& cancellation) = 0;
};

} // namespace tavrin
