// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"
#include "platform/SoftwareUpdate.h"

#include <cstdint>
#include <string>
#include <variant>

namespace orvel {

/// Shows the user the stages of an update. The answers go to `SoftwareUpdater::choose`. An updater
/// with its own windows never calls it.
class UpdatePresenter : public tavrin::Interface {
public:
    /// A check that the user asked for has begun. `Choice::Cancel` ends it.
    struct Checking {};
    /// That check found nothing newer.
    struct NoUpdate {};
    /// Expects `Install`, `Later` or `Skip`. A newer offer may replace a gentle offer that the user
    /// has not seen.
    struct Offer {
        SoftwareUpdate update;
        /// The user did not ask for it, so it must not take the focus. The presenter decides
        /// whether to show it at once or to wait for `showInFocus`.
        bool isGentle = false;
    };
    /// Shown repeatedly during the download. `Choice::Cancel` ends it.
    struct Download {
        std::uint64_t receivedBytes = 0;
        std::uint64_t expectedBytes = 0;
    };
    /// The download is complete and is being verified.
    struct Verification {};
    /// Verified. Expects `Install`, `Later` or `Skip`.
    struct ReadyToInstall {
        SoftwareUpdate update;
    };
    /// The user's request failed: nothing was installed, and the download was removed.
    struct Refusal {
        /// The reason, a sentence for the user.
        std::string sentence;
    };
    using Stage =
        std::variant<Checking, NoUpdate, Offer, Download, Verification, ReadyToInstall, Refusal>;

    virtual void show(const Stage& stage) = 0;
    /// The user asked for updates while a stage is shown. Brings it to the front.
    virtual void showInFocus() = 0;
    /// Shows the user the verified package at that path, to open with the system's installer.
    virtual void revealPackage(const std::string& path) = 0;
    /// Starts the new version, which has replaced this one on disk.
    virtual void relaunch() = 0;
};

} // namespace orvel
