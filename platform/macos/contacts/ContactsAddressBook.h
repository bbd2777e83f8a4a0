// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/AddressBook.h"
#include "platform/macos/support/PendingCalls.h"

#include <functional>
#include <vector>

@class CNContactStore;

namespace orvel {

/// The user's contacts of all accounts. Linked cards of one person are unified. The system asks for
/// consent and stores the answer. If a debugger is attached, it stores a refusal.
///
/// Reads cards on a system thread, which may outlive the object.
class ContactsAddressBook final : public AddressBook {
public:
    explicit ContactsAddressBook(CNContactStore* store);

    [[nodiscard]] AuthorizationStatus authorizationStatus() const override;
    void requestAccess(std::function<void(bool)> completion) override;
    void enumerateCards(Fields fields, std::function<void(Cards)> completion) override;

private:
    void answerRequests(bool isGranted);

    CNContactStore* store_;
    /// Completions that wait for the user's answer.
    std::vector<std::function<void(bool)>> requests_;
    PendingCalls<bool> questions_;
    PendingCalls<Cards> enumerations_;
};

} // namespace orvel
