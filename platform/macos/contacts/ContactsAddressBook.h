// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/AddressBook.h"
#include "platform/macos/support/PendingCalls.h"

#include <functional>
#include <vector>

@class CNContactStore;

namespace orvel {

/// The user's contacts, all accounts, with the cards of one person linked to one. The system asks
/// for consent and keeps the answer; asking while a debugger is attached makes it record a refusal.
///
/// Cards are read on a thread of the system's, which may outlive the object.
class ContactsAddressBook final : public AddressBook {
public:
    ContactsAddressBook();
    /// With another store than the user's.
    explicit ContactsAddressBook(CNContactStore* store);
    ~ContactsAddressBook() override;

    [[nodiscard]] AuthorizationStatus authorizationStatus() const override;
    void requestAccess(std::function<void(bool)> completion) override;
    void enumerateCards(Fields fields, std::function<void(Cards)> completion) override;

private:
    void answerRequests(bool isGranted);

    CNContactStore* store_;
    /// Those who wait for the user's answer.
    std::vector<std::function<void(bool)>> requests_;
    PendingCalls<bool> questions_;
    PendingCalls<Cards> enumerations_;
};

} // namespace orvel
