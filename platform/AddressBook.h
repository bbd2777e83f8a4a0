// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Errors.h"
#include "core/Interface.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace orvel {

/// One person or organization. The values are neither trimmed nor normalized. Always well-formed
/// UTF-8.
struct ContactCard {
    std::string givenName;
    std::string familyName;
    std::string organizationName;
    std::vector<std::string> phoneNumbers;
    std::vector<std::string> emailAddresses;

    bool operator==(const ContactCard&) const = default;
};

/// The user's address book; reading it needs the user's consent. Main thread; completions run there
/// exactly once, never before the call returns. Destroying the address book drops pending
/// completions without calling them.
class AddressBook : public tavrin::Interface {
public:
    /// Which parts of the cards to read; the others stay empty.
    enum class Fields { Identifiers, IdentifiersAndNames };

    /// What could be read.
    struct Cards {
        std::vector<ContactCard> cards;
        /// Why cards are missing. An address book of several parts may still give those of the
        /// others.
        std::optional<tavrin::PlatformError> error = std::nullopt;
    };

    /// Uses the platform's numbers. Values without a name here are passed on unchanged.
    enum class AuthorizationStatus : int {
        NotDetermined = 0,
        Restricted = 1,
        Denied = 2,
        Authorized = 3,
        Limited = 4,
    };

    [[nodiscard]] virtual AuthorizationStatus authorizationStatus() const = 0;

    /// Asks the user unless access is already decided, then passes whether access is granted. While
    /// a question is open, another request brings it to the front and gets the same answer. On some
    /// platforms a refusal is not stored, so the next request asks again.
    virtual void requestAccess(std::function<void(bool)> completion) = 0;

    /// The cards of all people and organizations, in the address book's order, without contact
    /// lists. Without access there is an error and no card.
    virtual void enumerateCards(Fields fields, std::function<void(Cards)> completion) = 0;
};

} // namespace orvel
