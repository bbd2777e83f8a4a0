// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/FileDescriptor.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <variant>

namespace orvel {

/// A file lock that one of the user's processes can hold. The kernel releases it when the process
/// ends, even after a crash, so a left-over file does not matter. Locks belong to the process, so
/// create only one object per identifier.
class InstanceLock final {
public:
    struct Held {};
    /// Another process holds the lock.
    struct HeldBy {
        std::int64_t processIdentifier = 0;
    };
    /// The file cannot be created or locked.
    struct Unavailable {};
    using Outcome = std::variant<Held, HeldBy, Unavailable>;

    /// A folder for lock files that only this user can write to: the session's runtime folder, or
    /// else the folder of the settings. Nothing when neither is available.
    [[nodiscard]] static std::optional<std::filesystem::path> defaultFolder();

    /// Locks "{identifier}.lock" in that folder until this object is destroyed.
    [[nodiscard]] Outcome take(const std::filesystem::path& folder, const std::string& identifier);

private:
    tavrin::FileDescriptor file_;
};

} // namespace orvel
