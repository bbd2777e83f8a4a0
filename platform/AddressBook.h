// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Errors.h"
#include "core/Interface.h"

#include <functional>
#include <string>
#include <variant>
#include <vector>

namespace orvel {

/// One person or organization as the address book has it: nothing is trimmed or normalized. Always
/// well-formed UTF-8.
struct ContactCard {
    std::string givenName;
    std::string familyName;
    std::string organizationName;
    std::vector<std::string> phoneNumbers;
    std::vector<std::string> emailAddresses;

    bool operator==(const ContactCard&) const = default;
};

/// The user's address book, behind the user's consent. Main thread; completions run there exactly
/// once, never before the call returns. Destroying the address book drops what is in flight without
/// calling back.
class AddressBook : public tavrin::Interface {
public:
    /// Which parts of the cards to read; the others stay empty.
    enum class Fields { Identifiers, IdentifiersAndNames };

    using Cards = std::variant<std::vector<ContactCard>, tavrin::PlatformError>;

    /// In the platform's own numbers. A system may have further ones; they are passed on, without
    /// a name.
    enum class AuthorizationStatus : int {
        NotDetermined = 0,
        Restricted = 1,
        Denied = 2,
        Authorized = 3,
        Limited = 4,
    };

    [[nodiscard]] virtual AuthorizationStatus authorizationStatus() const = 0;

    /// Asks the user when nothing is decided yet, one question at a time: a request meanwhile
    /// brings the open one to the front and shares its answer. Answers whether access is granted
    /// now. It is the platform's affair whether a refusal decides anything: where it does not, the
    /// next request asks again.
    virtual void requestAccess(std::function<void(bool)> completion) = 0;

    /// The cards of all people and organizations, in the address book's order; lists of people are
    /// left out. Without access it fails.
    virtual void enumerateCards(Fields fields, std::function<void(Cards)> completion) = 0;
};

} // namespace orvel
