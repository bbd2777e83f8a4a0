// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/CancellationToken.h"
#include "core/Errors.h"
#include "core/messages/FileCopier.h"

#include <atomic>
#include <cerrno>
#include <filesystem>

namespace orvel::test {

/// Copies with the standard library. Tests can make it fail.
class PlainFileCopier final : public tavrin::FileCopier {
public:
    void setFails(bool fails) { fails_ = fails; }
    /// Whether only write-ahead logs cannot be copied.
    void setFailsForLogs(bool fails) { failsForLogs_ = fails; }

    void copy(
        const std::filesystem::path& source,
        const std::filesystem::path& destination,
        const tavrin::CancellationToken& cancellation) override {
        cancellation.throwIfCancelled();
        if (fails_ || (failsForLogs_ && source.string().ends_with("-wal"))) {
            throw tavrin::PlatformError::fromErrno(ENOSPC, "Could not copy");
        }
        std::filesystem::copy_file(source, destination);
    }

private:
    std::atomic<bool> fails_ = false;
    std::atomic<bool> failsForLogs_ = false;
};

} // namespace orvel::test
