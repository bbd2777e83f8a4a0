// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string_view>

namespace orvel::service {

/// A file open for writing that only its owner may read, from its first moment. Everything fails
/// with `ServiceError`.
class PrivateFile final {
public:
    enum class Mode { Append, Replace };

    /// Makes the file when there is none, but not its directory.
    PrivateFile(std::filesystem::path path, Mode mode);
    ~PrivateFile();
    PrivateFile(const PrivateFile&) = delete;
    PrivateFile& operator=(const PrivateFile&) = delete;

    void write(std::string_view text);

private:
    std::filesystem::path path_;
    int descriptor_;
};

/// Writes a file for its owner only, which appears whole or not at all. Throws `ServiceError`.
void replacePrivateFile(const std::filesystem::path& file, std::string_view content);

/// Makes the directory and its parents. Only the owner may enter the directory when it is new.
/// Throws `ServiceError`.
void makePrivateDirectory(const std::filesystem::path& directory);

} // namespace orvel::service
