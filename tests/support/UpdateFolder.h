// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>

namespace orvel::test {

/// A folder of updates for the local service. The program `sign-update` signs them with a new key.
/// Throws `std::runtime_error` if that program fails.
class UpdateFolder final {
public:
    /// Creates the folder, and the key in a file beside it.
    UpdateFolder(std::string signUpdate, std::filesystem::path folder);

    [[nodiscard]] const std::filesystem::path& path() const { return folder_; }
    [[nodiscard]] const std::string& publicKey() const { return publicKey_; }

    /// Of the published update.
    [[nodiscard]] std::filesystem::path appImage() const { return folder_ / "Agent.AppImage"; }

    /// Publishes the update as version 9.0.0 of the AppImage, in a feed with this item only.
    void publish(const std::string& update, const std::string& serviceURL) const;

private:
    std::string signUpdate_;
    std::filesystem::path folder_;
    std::filesystem::path keyFile_;
    std::string publicKey_;
};

} // namespace orvel::test
