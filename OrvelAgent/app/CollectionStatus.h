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

/// Derives the status for the tray icon and the panel from the services at every call. Main thread.
/// Borrows everything.
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

    /// Collection is blocked until the user signs in or grants Full Disk Access.
    [[nodiscard]] bool needsAttention() const;
    /// Always false with reduced motion: the icon is steady then.
    [[nodiscard]] bool shouldFlash() const;
    /// A sentence for the user. Empty while collection is not blocked.
    [[nodiscard]] std::optional<std::string> blockedReason() const;
    [[nodiscard]] StatusIcon statusIcon() const;
    [[nodiscard]] std::string statusAccessibilityLabel() const;

private:
    const Sources sources_;
    const std::string displayName_;
};

} // namespace orvel
