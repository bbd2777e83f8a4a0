// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/FileDescriptor.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <variant>

namespace orvel {

/// A lock that one process of the user's can hold, on a file of its name. The kernel lets go of it
/// with the process, however that ends, so the file that remains means nothing. One object per
/// process and name: the lock is the process's.
class InstanceLock final {
public:
    struct Held {};
    /// Another process has it.
    struct HeldBy {
        std::int64_t processIdentifier = 0;
    };
    /// There is no place for the file, or no way to lock it.
    struct Unavailable {};
    using Outcome = std::variant<Held, HeldBy, Unavailable>;

    /// The user's own folder for such files, which nobody else can write to: that of the session,
    /// or else one of its own for temporary files; nothing when there is neither.
    [[nodiscard]] static std::optional<std::filesystem::path>
    defaultFolder(const std::string& identifier);

    /// Takes the lock "{identifier}.lock" in that folder, for as long as this object lives.
    [[nodiscard]] Outcome take(const std::filesystem::path& folder, const std::string& identifier);

private:
    tavrin::FileDescriptor file_;
};

} // namespace orvel
