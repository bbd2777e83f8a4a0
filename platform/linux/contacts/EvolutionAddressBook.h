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

/// The desktop's enabled address books, through Evolution Data Server on the session bus.
///
/// The desktop has no consent of its own, so the agent asks for it. A grant is kept in the user
/// defaults. A refusal decides nothing: there are no settings of the desktop's where the user could
/// take it back, so whoever requests access again is asked again. Without a session bus or without
/// the service the status is `restricted`, which is found out, and logged, at the first request or
/// enumeration. A service may also have been too slow to start: every further request or
/// enumeration looks again, and so does asking for the status, in the background. An address book
/// that cannot be read while others can is left out, and logged. The same reason is logged once.
///
/// Borrows the defaults and the log store. The service is awaited on threads of their own, which
/// may outlive the object.
class EvolutionAddressBook final : public AddressBook {
public:
    /// Asks the user and answers through its argument, on the main thread. While it has not
    /// answered it may be called again, to bring the question to the front. Only the first answer
    /// counts.
    using AskUser = std::function<void(std::function<void(bool)> answer)>;

    /// Without `askUser` nobody can be asked: a request is refused and nothing gets decided.
    EvolutionAddressBook(tavrin::UserDefaults& defaults, LogStore& logStore, AskUser askUser);
    ~EvolutionAddressBook() override;

    [[nodiscard]] int authorizationStatus() const override;
    void requestAccess(std::function<void(bool)> completion) override;
    void enumerateCards(Fields fields, std::function<void(Cards)> completion) override;

private:
    struct Reading;

    /// What the user has decided, whether the service is there or not.
    [[nodiscard]] int consent() const;
    /// Whether the service is there. One look at a time.
    void look() const;
    void noteIfMissing(const Reading& reading) const;
    void later(std::function<void()> job);
    void logOnce(const tavrin::PlatformError& failure) const;
    void askUser();
    void keepGrant();
    void answerRequests(bool isGranted);

    tavrin::UserDefaults& defaults_;
    LogStore& logStore_;
    AskUser askUser_;
    /// As far as is known: asking for the status looks again.
    mutable bool isMissing_ = false;
    mutable bool isLooking_ = false;
    /// What waits for the end of a look.
    mutable std::function<void()> looked_;
    bool isAsking_ = false;
    /// Every enumeration may fail in the same way.
    mutable std::set<std::string> logged_;
    /// Those who wait for the user's answer.
    std::vector<std::function<void(bool)>> requests_;
    /// Results come to it; with it they are dropped.
    std::unique_ptr<QObject> mainThread_;
    /// Ends first: what it writes must be on disk, and its result has nobody left to go to.
    std::jthread consentWriter_;
};

} // namespace orvel
