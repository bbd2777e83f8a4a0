// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/UserDefaults.h"
#include "platform/AddressBook.h"
#include "platform/LogStore.h"

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

class QObject;

namespace orvel {

struct EvolutionCards;

/// The desktop's enabled address books, through Evolution Data Server on the session bus.
///
/// The desktop has no consent of its own, so the agent asks for it. A grant is kept in the user
/// defaults. A refusal decides nothing: there are no settings of the desktop's where the user could
/// take it back, so a further request asks again. Without a session bus or without the service the
/// status is `Restricted`, which is found out, and logged, at the first request or enumeration. A
/// service may also have been too slow to start: every further request or enumeration checks again,
/// and so does asking for the status, in the background. An address book that cannot be read while
/// others can is left out, and logged. The same reason is logged once.
///
/// Borrows the defaults and the log store. The service is awaited on threads of their own, which
/// may outlive the object.
class EvolutionAddressBook final : public AddressBook {
public:
    /// Asks the user and answers through its argument, on the main thread. While it has not
    /// answered it may be called again, to bring the question to the front. Only the first answer
    /// counts.
    using AskUser = std::function<void(std::function<void(bool)> answer)>;

    /// Without `askUser` a request is refused and nothing is decided.
    EvolutionAddressBook(tavrin::UserDefaults& defaults, LogStore& logStore, AskUser askUser);
    ~EvolutionAddressBook() override;

    [[nodiscard]] AuthorizationStatus authorizationStatus() const override;
    void requestAccess(std::function<void(bool)> completion) override;
    void enumerateCards(Fields fields, std::function<void(Cards)> completion) override;

private:
    /// What the user has decided, whether the service is there or not.
    [[nodiscard]] AuthorizationStatus consent() const;
    /// Finds out on a thread whether the service is there; one check at a time.
    void checkService() const;
    void noteIfMissing(const EvolutionCards& read) const;
    void post(std::function<void()> callback);
    void logOnce(const tavrin::PlatformError& failure) const;
    void askUser();
    void keepGrant();
    void answerRequests(bool isGranted);

    tavrin::UserDefaults& defaults_;
    LogStore& logStore_;
    AskUser askUser_;
    /// As far as is known: asking for the status checks again.
    mutable bool isMissing_ = false;
    mutable bool isChecking_ = false;
    /// What waits for the end of the check.
    mutable std::function<void()> afterCheck_;
    bool isAsking_ = false;
    /// Every enumeration may fail in the same way.
    mutable std::set<std::string> logged_;
    /// Those who wait for the user's answer.
    std::vector<std::function<void(bool)>> requests_;
    /// Callbacks that it has queued are dropped with it.
    std::unique_ptr<QObject> callbackContext_;
    /// Ends first: what it writes must be on disk, and its result is dropped.
    std::jthread consentWriter_;
};

} // namespace orvel
