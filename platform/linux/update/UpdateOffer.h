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

/// What decides which items are for this copy of the application.
struct UpdateCriteria {
    /// Only what is newer counts.
    UpdateVersion current;
    /// Neither this version nor an older one counts.
    std::optional<UpdateVersion> skipped;
    /// As "uname -m" says it.
    std::string architecture;
    /// The enclosure's MIME type.
    std::string type;
    /// Of the C library, which decides whether a program made for another system version runs.
    UpdateVersion systemVersion;
};

/// Larger updates are refused: all of one is in memory while its signature is verified.
inline constexpr std::uint64_t maximumUpdateBytes = std::uint64_t{256} << 20U;

/// The newest item for this copy, if there is one. Items of a channel are for those who asked to be
/// in it, so they are left out, and so is an enclosure that does not name the system "linux", this
/// architecture and this type. Throws `UpdateError` when the newest item lacks something that is
/// needed to download and verify it, and when a version cannot be compared.
[[nodiscard]] std::optional<UpdateOffer>
newestUpdate(const std::vector<AppcastItem>& items, const UpdateCriteria& criteria);

} // namespace orvel
