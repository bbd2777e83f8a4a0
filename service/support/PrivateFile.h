// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string_view>

namespace orvel::service {

/// A file open for writing that only its owner can read from its creation on. Every failure is a
/// `ServiceError`.
class PrivateFile final {
public:
    enum class Mode { Append, Replace };

    /// Creates the file if it is missing, but not its directory.
    PrivateFile(std::filesystem::path path, Mode mode);
    ~PrivateFile();
    PrivateFile(const PrivateFile&) = delete;
    PrivateFile& operator=(const PrivateFile&) = delete;

    void write(std::string_view text);

private:
    std::filesystem::path path_;
    int descriptor_;
};

/// Atomically replaces a file that only the owner can read. Throws `ServiceError`.
void replacePrivateFile(const std::filesystem::path& file, std::string_view content);

/// Creates the directory and its parents. Only the owner can enter a new directory. Throws
/// `ServiceError`.
void makePrivateDirectory(const std::filesystem::path& directory);

} // namespace orvel::service
