// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Errors.h"
#include "platform/AddressBook.h"

#include <optional>
#include <vector>

namespace orvel {

/// The content of the enabled address books of Evolution Data Server.
struct EvolutionCards {
    /// Blocks; any thread. Without fields it only checks whether the service is available.
    [[nodiscard]] static EvolutionCards read(std::optional<AddressBook::Fields> fields);

    std::vector<ContactCard> cards;
    /// One for each unreadable address book.
    std::vector<tavrin::PlatformError> failures;
    /// Set when the cards are not complete.
    std::optional<tavrin::PlatformError> error;
    /// There is no session bus, no such service on it, or no library to use it.
    bool isMissing = false;
};

} // namespace orvel
