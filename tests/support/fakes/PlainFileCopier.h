// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/CancellationToken.h"
#include "core/Errors.h"
#include "core/messages/FileCopier.h"

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>

namespace orvel::test {

/// Copies with the standard library. Tests can make it fail.
class PlainFileCopier final : public tavrin::FileCopier {
public:
    void setFails(bool fails) { fails_ = fails; }
    /// Whether only write-ahead logs cannot be copied.
    void setFailsForLogs(bool fails) { failsForLogs_ = fails; }

    /// Called after each copy with the name of the source, on the copying thread.
    void setOnCopied(std::function<void(std::string)> onCopied) { onCopied_ = std::move(onCopied); }

    void copy(
        const std::filesystem::path& source,
        const std::filesystem::path& destination,
        const tavrin::CancellationToken& cancellation) override {
        cancellation.throwIfCancelled();
        if (fails_ || (failsForLogs_ && source.string().ends_with("-wal"))) {
            throw tavrin::PlatformError::fromErrno(ENOSPC, "Could not copy");
        }
        std::filesystem::copy_file(source, destination);
        if (onCopied_) {
            onCopied_(source.filename());
        }
    }

private:
    std::atomic<bool> fails_ = false;
    std::atomic<bool> failsForLogs_ = false;
    std::function<void(std::string)> onCopied_;
};

} // namespace orvel::test
