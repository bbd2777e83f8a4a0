// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/messages/FileCopier.h"

#include <vector>

namespace orvel {

/// Lets the kernel copy: a copy-on-write file system shares the blocks, others copy from page cache
/// to page cache, and only where neither works do the bytes pass through this process.
///
/// Copies as many bytes as the source has at the start, fewer if it shrinks meanwhile; one that
/// keeps growing is no endless copy. Nothing is flushed to the disk. Any thread.
class KernelFileCopier final : public tavrin::FileCopier {
public:
    enum class Way {
        /// `FICLONE`: one step, whatever the size.
        Clone,
        /// `copy_file_range`.
        CopyInKernel,
        ReadAndWrite,
    };

    /// The ways to try, in this order; each takes over where the one before it had to stop.
    explicit KernelFileCopier(
        std::vector<Way> ways = {Way::Clone, Way::CopyInKernel, Way::ReadAndWrite});

    void copy(
        const std::filesystem::path& source,
        const std::filesystem::path& destination,
        const tavrin::CancellationToken& cancellation) override;

private:
    std::vector<Way> ways_;
};

} // namespace orvel
