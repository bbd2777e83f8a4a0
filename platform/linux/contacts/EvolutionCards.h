// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Errors.h"
#include "platform/AddressBook.h"

#include <optional>
#include <vector>

namespace orvel {

/// What the enabled address books of Evolution Data Server hold.
struct EvolutionCards {
    /// Blocks; any thread. Without fields it only finds out whether the service is there.
    [[nodiscard]] static EvolutionCards read(std::optional<AddressBook::Fields> fields);

    std::vector<ContactCard> cards;
    /// Of single address books.
    std::vector<tavrin::PlatformError> failures;
    /// Why there is nothing at all.
    std::optional<tavrin::PlatformError> error;
    /// No session bus, no such service on it, or no way to speak to it.
    bool isMissing = false;
};

} // namespace orvel
