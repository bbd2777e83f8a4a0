// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/SoftwareUpdate.h"
#include "platform/linux/update/Appcast.h"
#include "platform/linux/update/UpdateKey.h"
#include "platform/linux/update/UpdateVersion.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace orvel {

/// An update that can be downloaded and verified.
struct UpdateOffer {
    SoftwareUpdate update;
    UpdateVersion version;
    /// https.
    std::string url;
    UpdateSignature signature;
};

/// Decides which items of the feed suit this copy of the application.
struct UpdateCriteria {
    /// Only newer versions are offered.
    UpdateVersion current;
    /// This version and older ones are not offered.
    std::optional<UpdateVersion> skipped;
    /// As "uname -m" prints it.
    std::string architecture;
    /// The enclosure's MIME type.
    std::string type;
    /// The version of the C library; an item may require a newer one.
    UpdateVersion systemVersion;
};

/// Larger updates are refused: verifying the signature needs the whole update in memory.
inline constexpr std::uint64_t maximumUpdateBytes = std::uint64_t{256} << 20U;

/// The newest suitable item, if any. Skips items of a channel, which a user would have to join, and
/// enclosures that do not name the system "linux", this architecture and this type. Throws
/// `UpdateError` when a version cannot be compared, or when the newest item lacks what is needed to
/// download and verify it.
[[nodiscard]] std::optional<UpdateOffer>
newestUpdate(const std::vector<AppcastItem>& items, const UpdateCriteria& criteria);

} // namespace orvel
