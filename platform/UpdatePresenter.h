// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"
#include "platform/SoftwareUpdate.h"

#include <cstdint>
#include <string>
#include <variant>

namespace orvel {

/// Shows the user the stages of an update. The answers go to `SoftwareUpdater::choose`. An updater
/// that has windows itself never calls it.
class UpdatePresenter : public tavrin::Interface {
public:
    /// A check that the user asked for has begun. `Choice::Cancel` ends it.
    struct Checking {};
    /// That check found nothing newer.
    struct NoUpdate {};
    /// Expects `Install`, `Later` or `Skip`. An offer that is gentle and that the user has not seen
    /// may be replaced by a newer one.
    struct Offer {
        SoftwareUpdate update;
        /// The user did not ask for it, so it must not take the focus. The presenter decides
        /// whether to show it at once or to wait for `showInFocus`.
        bool isGentle = false;
    };
    /// Shown often while the download runs. `Choice::Cancel` ends it.
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
    /// The user's request ended without an update: nothing was installed, and the download is
    /// removed.
    struct Refusal {
        /// The reason, a sentence for the user.
        std::string sentence;
    };
    using Stage =
        std::variant<Checking, NoUpdate, Offer, Download, Verification, ReadyToInstall, Refusal>;

    virtual void show(const Stage& stage) = 0;
    /// The user asked for updates while a stage is shown: brings it to the front.
    virtual void showInFocus() = 0;
    /// The update is a package for the system's installer: shows the user the verified file at that
    /// path.
    virtual void revealPackage(const std::string& path) = 0;
    /// The new version has replaced this one on the disk: starts it.
    virtual void relaunch() = 0;
};

} // namespace orvel
