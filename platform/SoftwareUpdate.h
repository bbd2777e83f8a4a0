// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

namespace orvel {

/// A newer version that the update feed offers. The texts are untrusted, but may be shown.
struct SoftwareUpdate {
    /// The version that comparisons use.
    std::string version;
    /// The version shown to the user.
    std::string displayVersion;
    /// Plain text; may be empty.
    std::string releaseNotes;
    /// Bytes to download.
    std::uint64_t length = 0;

    bool operator==(const SoftwareUpdate&) const = default;
};

} // namespace orvel
