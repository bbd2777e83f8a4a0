// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/SoftwareUpdate.h"
#include "platform/linux/update/Appcast.h"
#include "platform/linux/update/UpdateKey.h"
#include "platform/linux/update/UpdateVersion.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvel {

/// An update that can be downloaded and verified.
struct UpdateOffer {
    SoftwareUpdate update;
    UpdateVersion version;
    /// https.
    std::string url;
    UpdateProof proof;
};

/// Decides which items of the feed suit this copy of the application.
struct UpdateCriteria {
    /// Only newer versions are offered.
    UpdateVersion current;
    /// As "uname -m" prints it.
    std::string architecture;
    /// The enclosure's MIME type.
    std::string type;
    /// The version of the C library; an item may require a newer one.
    UpdateVersion systemVersion;
};

/// Larger updates are refused: verifying the signature needs the whole update in memory.
inline constexpr std::uint64_t maximumUpdateBytes = std::uint64_t{256} << 20U;

/// Whether the signature of an item is valid for its `tavrin::signedBytes`.
using ItemVerifier = std::function<bool(const UpdateSignature&, std::string_view bytes)>;

/// The newest suitable item, if any. Skips items of a channel, which a user would have to join, and
/// enclosures that do not name the system "linux", this architecture and this type. Also skips
/// newer items that cannot be used, because their version cannot be compared, their signature is
/// not valid or they lack what is needed to download and verify the update. If no other item is
/// suitable, throws the `UpdateError` of the first of these.
///
/// A feed that is held back or replaced by an older signed one is not detected: it offers nothing,
/// or a release that is newer than this copy but not the newest.
[[nodiscard]] std::optional<UpdateOffer> newestUpdate(
    const std::vector<AppcastItem>& items,
    const UpdateCriteria& criteria,
    const ItemVerifier& isSigned);

} // namespace orvel
