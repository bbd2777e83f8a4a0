// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/FileDescriptor.h"

#include <filesystem>
#include <string_view>

namespace orvel::service {

/// A file opened for writing. Only its owner can read it, from the moment it is created. Throws
/// `ServiceError`.
class PrivateFile final {
public:
    enum class Mode { Append, Replace };

    /// Creates the file if it is missing, but not its directory. Follows no link and takes no file
    /// of another user.
    PrivateFile(std::filesystem::path path, Mode mode);

    void write(std::string_view text);

private:
    std::filesystem::path path_;
    tavrin::FileDescriptor descriptor_;
};

/// Atomically replaces the file with one that only the owner can read. Throws `ServiceError`.
void replacePrivateFile(const std::filesystem::path& file, std::string_view content);

/// Creates the directory and its parents. Only the owner can enter a new directory. Throws
/// `ServiceError`, also if other users may write to an existing directory (`canOthersWrite`).
void makePrivateDirectory(const std::filesystem::path& directory);

} // namespace orvel::service
