// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/messages/FileCopier.h"

#include <vector>

namespace orvel {

/// Copies in the kernel if possible: by sharing blocks on a copy-on-write file system, or else from
/// page cache to page cache. Falls back to reading and writing.
///
/// Copies as many bytes as the source has at the start, or fewer if it shrinks meanwhile, so a
/// growing file does not cause an endless copy. Does not flush to disk. Any thread.
class KernelFileCopier final : public tavrin::FileCopier {
public:
    enum class Method {
        /// `FICLONE`: one step for any size.
        Clone,
        /// The data of a file with holes, whose copy has the same holes. A few bytes on disk can
        /// stand for any size.
        CopyDataOfSparseFile,
        /// `copy_file_range`.
        CopyInKernel,
        ReadAndWrite,
    };

    /// The methods to try, in this order. Each continues where the previous one stopped.
    explicit KernelFileCopier(
        std::vector<Method> methods = {
            Method::Clone,
            Method::CopyDataOfSparseFile,
            Method::CopyInKernel,
            Method::ReadAndWrite});

    void copy(
        const std::filesystem::path& source,
        const std::filesystem::path& destination,
        const tavrin::CancellationToken& cancellation) override;

private:
    std::vector<Method> methods_;
};

} // namespace orvel
