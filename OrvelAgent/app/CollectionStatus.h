// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/app/StatusIcon.h"

#include <optional>
#include <string>

namespace orvel {

class AttentionFlash;
class AuthService;
class CollectorService;
class MotionPreference;
class Permissions;
class UpdaterService;

/// The status that the tray icon and its label show, derived from the services at every call. Main
/// thread. Borrows everything.
class CollectionStatus final {
public:
    struct Sources {
        const AuthService& auth;
        const Permissions& permissions;
        const CollectorService& collector;
        const UpdaterService& updater;
        const AttentionFlash& flash;
        MotionPreference& motion;
    };

    CollectionStatus(const Sources& sources, std::string displayName);

    /// Only the user can remove what prevents collection.
    [[nodiscard]] bool needsAttention() const;
    /// Whether the icon is to flash. With reduced motion it shows a steady image.
    [[nodiscard]] bool shouldFlash() const;
    /// Why nothing is collected.
    [[nodiscard]] std::optional<std::string> blockedReason() const;
    [[nodiscard]] StatusIcon statusIcon() const;
    /// The status icon in words.
    [[nodiscard]] std::string statusAccessibilityLabel() const;

private:
    const Sources sources_;
    const std::string displayName_;
};

} // namespace orvel
