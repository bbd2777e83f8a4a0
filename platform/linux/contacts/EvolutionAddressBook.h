// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/UserDefaults.h"
#include "platform/AddressBook.h"
#include "platform/LogStore.h"
#include "platform/linux/support/CallbackContext.h"
#include "platform/linux/support/WorkQueue.h"

#include <functional>
#include <set>
#include <string>
#include <vector>

namespace orvel {

struct EvolutionCards;

/// The desktop's enabled address books, through Evolution Data Server on the session bus.
///
/// The desktop does not ask for consent, so the agent does. A grant is stored in the user defaults.
/// A refusal is not stored, because the desktop has no settings in which the user could revoke it;
/// the next request asks again. Without a session bus or without the service the status is
/// `Restricted`. The first request or enumeration detects and logs that. From then on every
/// request, enumeration or status query checks again, because the service may only be slow to
/// start. If one of several address books cannot be read, an enumeration gives the cards of the
/// others and an error. Each failure is logged once.
///
/// Borrows the defaults and the log store. Its threads, which wait for the service, may outlive the
/// object.
class EvolutionAddressBook final : public AddressBook {
public:
    /// Asks the user and passes the answer to its argument, on the main thread. If called while the
    /// question is open, brings it to the front. Only the first answer counts.
    using AskUser = std::function<void(std::function<void(bool)> answer)>;

    /// Without `askUser` every request is refused.
    EvolutionAddressBook(tavrin::UserDefaults& defaults, LogStore& logStore, AskUser askUser);

    [[nodiscard]] AuthorizationStatus authorizationStatus() const override;
    void requestAccess(std::function<void(bool)> completion) override;
    void enumerateCards(Fields fields, std::function<void(Cards)> completion) override;

private:
    /// The user's decision, independent of the service's state.
    [[nodiscard]] AuthorizationStatus consent() const;
    /// Checks on a thread whether the service is available; one check at a time.
    void checkService() const;
    void recordServiceState(const EvolutionCards& read) const;
    void logOnce(const tavrin::PlatformError& failure) const;
    void askUser();
    void storeGrant();
    void answerRequests(bool isGranted);

    tavrin::UserDefaults& defaults_;
    LogStore& logStore_;
    AskUser askUser_;
    /// The result of the last check.
    mutable bool isMissing_ = false;
    mutable bool isChecking_ = false;
    /// Runs after the check.
    mutable std::function<void()> afterCheck_;
    bool isAsking_ = false;
    /// The failures already logged.
    mutable std::set<std::string> logged_;
    /// Pending requests for access.
    std::vector<std::function<void(bool)>> requests_;
    mutable CallbackContext callbackContext_;
    /// Destroyed first: waits until the grant is on disk.
    WorkQueue consentWriter_;
};

} // namespace orvel
