// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/network/AccountSession.h"
#include "OrvelAgent/scan/ContactBridge.h"
#include "core/CollectionPreferences.h"
#include "core/Date.h"
#include "core/messages/MessagesCollector.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace orvel {

/// Everything that one scan decides. Made before the first message is read and never changed, so
/// that every step of the scan follows the same choices.
struct ScanPlan {
    using HintSet = tavrin::MessagesCollector::HintSet;

    enum class AddressBook {
        /// The user has not allowed it, or the scan leaves it out.
        Unused,
        Read,
        /// Allowed, but it could not be read, or not completely. Also if access is restricted.
        Unreadable,
    };

    AccountSession session;
    /// The start of the scan. The count of the last 24 hours ends here.
    tavrin::Date startedAt;
    /// The number of resets before the choices were read. A later reset ends the scan.
    std::uint64_t resets = 0;
    tavrin::CollectionMode mode = tavrin::CollectionPreferences::defaultMode;
    tavrin::ThreadScope scope = tavrin::CollectionPreferences::defaultScope;
    /// Including those of the address book.
    std::shared_ptr<const HintSet> knownHandles = std::make_shared<const HintSet>();
    /// The names and e-mail addresses of the address book.
    std::shared_ptr<const ContactBridge::IdentityIndex> identities =
        std::make_shared<const ContactBridge::IdentityIndex>();
    AddressBook addressBook = AddressBook::Unused;
    /// Must be valid for `AppleEpoch::rawNanoseconds`.
    std::optional<tavrin::Date> since;
};

} // namespace orvel
