// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/app/CollectionStatus.h"

#include "OrvelAgent/account/AuthService.h"
#include "OrvelAgent/app/AttentionFlash.h"
#include "OrvelAgent/app/Permissions.h"
#include "OrvelAgent/scan/CollectorService.h"
#include "OrvelAgent/update/UpdaterService.h"
#include "platform/MotionPreference.h"

#include <utility>

namespace orvel {

CollectionStatus::CollectionStatus(const Sources& sources, std::string displayName)
    : sources_(sources), displayName_(std::move(displayName)) {}

bool CollectionStatus::needsAttention() const {
    return !sources_.auth.isSignedIn() || !sources_.permissions.hasFullDiskAccess();
}

bool CollectionStatus::shouldFlash() const {
    return needsAttention() && !sources_.motion.shouldReduceMotion() &&
           !sources_.collector.isScanning() && !sources_.collector.isPaused();
}

std::optional<std::string> CollectionStatus::blockedReason() const {
    if (!sources_.auth.isSignedIn()) {
        return "Sign in to start collecting.";
    }
    if (!sources_.permissions.hasFullDiskAccess()) {
        return "Full Disk Access is required to read Messages.";
    }
    if (sources_.collector.isPaused()) {
        return "Collection is paused.";
    }
    return std::nullopt;
}

StatusIcon CollectionStatus::statusIcon() const {
    if (sources_.collector.isScanning()) {
        return StatusIcon::Scanning;
    }
    if (sources_.collector.isPaused()) {
        return StatusIcon::Paused;
    }
    if (needsAttention()) {
        if (sources_.motion.shouldReduceMotion()) {
            return StatusIcon::BrandAlert;
        }
        return sources_.flash.isOn() ? StatusIcon::Attention : StatusIcon::Brand;
    }
    return sources_.updater.updateAwaitingAttention() ? StatusIcon::BrandAlert : StatusIcon::Brand;
}

std::string CollectionStatus::statusAccessibilityLabel() const {
    switch (statusIcon()) {
    case StatusIcon::Brand:
        return displayName_;
    case StatusIcon::Scanning:
        return displayName_ + ": scanning";
    case StatusIcon::Paused:
        return displayName_ + ": collection paused";
    case StatusIcon::BrandAlert:
    case StatusIcon::Attention:
        break;
    }
    if (const auto reason = blockedReason()) {
        return displayName_ + ": " + *reason;
    }
    return displayName_ + (sources_.updater.updateAwaitingAttention()
                               ? ": an update is ready to install"
                               : ": needs attention");
}

} // namespace orvel
