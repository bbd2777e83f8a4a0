// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/contacts/EvolutionAddressBook.h"

#include "platform/linux/contacts/EvolutionCards.h"
#include "platform/linux/support/StartThread.h"

#include <QPointer>

#include <cerrno>
#include <exception>
#include <string>
#include <string_view>
#include <utility>

namespace orvel {

namespace {

constexpr std::string_view consentKey = "contacts.access";
constexpr std::string_view granted = "granted";

} // namespace

EvolutionAddressBook::EvolutionAddressBook(
    tavrin::UserDefaults& defaults, LogStore& logStore, AskUser askUser)
    : defaults_(defaults), logStore_(logStore), askUser_(std::move(askUser)) {}

AddressBook::AuthorizationStatus EvolutionAddressBook::authorizationStatus() const {
    if (isMissing_) {
        checkService();
        return AuthorizationStatus::Restricted;
    }
    return consent();
}

AddressBook::AuthorizationStatus EvolutionAddressBook::consent() const {
    if (storedValue<std::string>(defaults_, consentKey) == granted) {
        return AuthorizationStatus::Authorized;
    }
    return AuthorizationStatus::NotDetermined;
}

void EvolutionAddressBook::requestAccess(std::function<void(bool)> completion) {
    if (!isMissing_ && consent() != AuthorizationStatus::NotDetermined) {
        callbackContext_.post(
            [completion = std::move(completion),
             isGranted = consent() == AuthorizationStatus::Authorized] { completion(isGranted); });
        return;
    }
    requests_.push_back(std::move(completion));
    if (isAsking_) {
        // Posted, so that an immediate answer does not run the completion before this returns.
        callbackContext_.post([this] {
            if (isAsking_) {
                askUser();
            }
        });
        return;
    }
    if (requests_.size() > 1) {
        return;
    }
    // Ask the user only if the service is available.
    afterCheck_ = [this] {
        if (isMissing_ || consent() != AuthorizationStatus::NotDetermined || !askUser_) {
            answerRequests(!isMissing_ && consent() == AuthorizationStatus::Authorized);
        } else {
            askUser();
        }
    };
    checkService();
}

void EvolutionAddressBook::enumerateCards(Fields fields, std::function<void(Cards)> completion) {
    if (consent() != AuthorizationStatus::Authorized) {
        callbackContext_.post([completion = std::move(completion)] {
            completion(
                {{},
                 tavrin::PlatformError::fromErrno(
                     EACCES, "Could not read the desktop's address book")});
        });
        return;
    }
    auto finish = [this, completion = std::move(completion)](EvolutionCards read) {
        recordServiceState(read);
        for (const auto& failure : read.failures) {
            logOnce(failure);
        }
        completion({std::move(read.cards), std::move(read.error)});
    };
    // Detached, as in `checkService`.
    startThread(
        &callbackContext_, [fields] { return EvolutionCards::read(fields); }, std::move(finish))
        .detach();
}

void EvolutionAddressBook::checkService() const {
    if (std::exchange(isChecking_, true)) {
        return;
    }
    // Detached and without access to this object: starting the service cannot be cancelled, and
    // libebook leaks memory on cancellation.
    startThread(
        &callbackContext_,
        [] { return EvolutionCards::read(std::nullopt); },
        [this](const EvolutionCards& read) {
            isChecking_ = false;
            recordServiceState(read);
            if (const auto afterCheck = std::exchange(afterCheck_, nullptr)) {
                afterCheck();
            }
        })
        .detach();
}

void EvolutionAddressBook::recordServiceState(const EvolutionCards& read) const {
    isMissing_ = read.isMissing;
    if (isMissing_) {
        logOnce(*read.error);
    }
}

void EvolutionAddressBook::logOnce(const tavrin::PlatformError& failure) const {
    if (logged_.insert(failure.what()).second) {
        logStore_.write(LogLevel::Error, "contacts", failure.what());
    }
}

void EvolutionAddressBook::askUser() {
    isAsking_ = true;
    // The answer may arrive twice, or after this object was destroyed.
    askUser_([this, context = QPointer(&callbackContext_)](bool isGranted) {
        if (!context || !std::exchange(isAsking_, false)) {
            return;
        }
        if (isGranted) {
            storeGrant();
        } else {
            answerRequests(false);
        }
    });
}

void EvolutionAddressBook::storeGrant() {
    consentWriter_.run(
        [&defaults = defaults_]() -> std::exception_ptr {
            try {
                defaults.set(consentKey, std::string(granted));
                return nullptr;
            } catch (const std::exception&) {
                return std::current_exception();
            }
        },
        [this](const std::exception_ptr& error) {
            if (error) {
                logStore_.write(
                    LogLevel::Error,
                    "contacts",
                    "could not keep the answer about the address book: " +
                        tavrin::description(error));
            }
            answerRequests(!error);
        });
}

void EvolutionAddressBook::answerRequests(bool isGranted) {
    for (const auto& completion : std::exchange(requests_, {})) {
        completion(isGranted);
    }
}

} // namespace orvel
