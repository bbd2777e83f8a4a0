// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/AddressBook.h"

#include <QObject>

#include <optional>
#include <utility>
#include <vector>

namespace orvel::test {

/// An address book in memory, with a user who answers immediately. A refusal leaves the access
/// undecided. As in `EvolutionAddressBook`, the status is `Restricted` after a read has found the
/// service missing, until a later check finds it.
class FakeAddressBook final : public AddressBook {
public:
    AuthorizationStatus status = AuthorizationStatus::Authorized;
    /// The user's answer.
    bool userAllows = true;
    std::vector<ContactCard> cards;
    /// If set, the service is missing: enumerating fails with this error.
    std::optional<tavrin::PlatformError> readError;
    /// If set, a further book cannot be read: enumerating gives the cards and this error.
    std::optional<tavrin::PlatformError> bookError;

    /// How often the user was asked, and how often a pending question was brought to the front.
    int questions = 0;
    int reminders = 0;
    /// The requested fields of each enumeration.
    std::vector<Fields> enumerations;

    /// From now on neither the user nor the address book answers.
    void hold() { isHolding_ = true; }

    [[nodiscard]] AuthorizationStatus authorizationStatus() const override {
        if (isMissing_) {
            later([this] { isMissing_ = readError.has_value(); });
            return AuthorizationStatus::Restricted;
        }
        return status;
    }

    void requestAccess(std::function<void(bool)> completion) override {
        const bool isDecided = status == AuthorizationStatus::Restricted ||
                               status == AuthorizationStatus::Denied || hasAccess();
        if (isDecided) {
            later([completion = std::move(completion), granted = hasAccess()] {
                completion(granted);
            });
            return;
        }
        const bool isOpen = !requests_.empty();
        ++(isOpen ? reminders : questions);
        requests_.push_back(std::move(completion));
        if (!isOpen) {
            later([this] { answer(); });
        }
    }

    void enumerateCards(Fields fields, std::function<void(Cards)> completion) override {
        enumerations.push_back(fields);
        later([this, fields, completion = std::move(completion), result = read(fields)] {
            if (hasAccess()) {
                isMissing_ = readError.has_value();
            }
            completion(result);
        });
    }

private:
    [[nodiscard]] bool hasAccess() const {
        return status == AuthorizationStatus::Authorized || status == AuthorizationStatus::Limited;
    }

    [[nodiscard]] Cards read(Fields fields) const {
        if (!hasAccess()) {
            return {
                {},
                tavrin::PlatformError(
                    "FakeAddressBook", static_cast<int>(status), "There is no access.")};
        }
        if (readError) {
            return {{}, readError};
        }
        Cards result{cards, bookError};
        if (fields == Fields::Identifiers) {
            for (ContactCard& card : result.cards) {
                card.givenName.clear();
                card.familyName.clear();
                card.organizationName.clear();
            }
        }
        return result;
    }

    void answer() {
        if (userAllows) {
            status = AuthorizationStatus::Authorized;
        }
        const bool isGranted = hasAccess();
        for (const auto& completion : std::exchange(requests_, {})) {
            completion(isGranted);
        }
    }

    void later(std::function<void()> job) const {
        if (!isHolding_) {
            QMetaObject::invokeMethod(&callbackContext_, std::move(job), Qt::QueuedConnection);
        }
    }

    bool isHolding_ = false;
    /// The result of the last check.
    mutable bool isMissing_ = false;
    /// The completions that wait for the user's answer.
    std::vector<std::function<void(bool)>> requests_;
    mutable QObject callbackContext_;
};

} // namespace orvel::test
