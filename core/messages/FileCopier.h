// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"

#include <filesystem>

namespace tavrin {

class CancellationToken;

/// Copies one file in the cheapest way that the file system supports.
class FileCopier : public Interface {
public:
    /// Creates `destination`, which must not exist, as a copy of `source` that only the owner can
    /// read. Throws `PlatformError` on failure and `TaskCancelled` if the token is cancelled
    /// meanwhile. In both cases the incomplete destination is removed. Blocks. Callable from any
    /// thread.
    virtual void copy(
        const std::filesystem::path& source,
        const std::filesystem::path& destination,
        const CancellationToken& cancellation) = 0;
};

} // namespace tavrin
