// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/KeychainStore.h"

#include "OrvelAgent/base/Completion.h"
#include "OrvelAgent/network/SecretJSON.h"

#include <QByteArrayView>
#include <QCryptographicHash>

#include <boost/json/value_from.hpp>
#include <boost/json/value_to.hpp>

#include <cstddef>
#include <exception>
#include <iterator>
#include <map>
#include <utility>

namespace orvel {

namespace {

constexpr const char* sessionAccount = "session";

QByteArray fingerprintOf(const std::optional<Session>& session) {
    if (!session || session->refreshToken.isEmpty()) {
        return {};
    }
    const std::string& token = session->refreshToken.text();
    return QCryptographicHash::hash(
        QByteArrayView(token.data(), std::ssize(token)), QCryptographicHash::Sha256);
}

} // namespace

/// Shared with the completions, which may run after the store is destroyed.
struct KeychainStore::Changes {
    std::size_t pending = 0;
    /// By account. Removed when a later change of the same item succeeds.
    std::map<std::string, tavrin::PlatformError> failures;
    std::optional<Deferred<void>> end;
};

KeychainStore::KeychainStore(Keychain& keychain, const std::string& bundleIdentifier)
    : keychain_(keychain),
      service_(bundleIdentifier + ".session"),
      changes_(std::make_shared<Changes>()) {}

QCoro::Task<KeychainStore::Reading> KeychainStore::load(tavrin::CancellationToken cancellation) {
    const std::uint64_t changeCount = changeCount_;
    auto start = [this](auto completion) {
        keychain_.read(service_, sessionAccount, std::move(completion));
    };
    const auto item =
        co_await awaitCompletion<Keychain::Reading>(std::move(start), std::move(cancellation));
    Reading reading;
    isUnreadable_ = item.failure.has_value();
    if (isUnreadable_) {
        reading.isUnreadable = true;
        co_return reading;
    }
    try {
        if (item.value) {
            reading.session = boost::json::value_to<Session>(parseSecretJSON(item.value->text()));
        }
    } catch (const std::exception&) {
        // Treat an unreadable session as missing.
    }
    const QByteArray fingerprint = fingerprintOf(reading.session);
    if (!fingerprint_) {
        fingerprint_ = fingerprint;
    }
    reading.isChangedElsewhere = changeCount == changeCount_ && fingerprint != *fingerprint_;
    co_return reading;
}

QCoro::Task<KeychainStore::Reading> KeychainStore::loadLatest(
    std::shared_ptr<KeychainStore> store, tavrin::CancellationToken cancellation) {
    Reading reading;
    std::uint64_t changeCount = 0;
    do {
        changeCount = store->changeCount_;
        reading = co_await store->load(cancellation);
    } while (changeCount != store->changeCount_);
    co_return reading;
}

void KeychainStore::accept(const Reading& reading) {
    fingerprint_ = fingerprintOf(reading.session);
}

void KeychainStore::save(const Session& session) {
    ++changeCount_;
    fingerprint_ = fingerprintOf(session);
    const boost::json::value json = boost::json::value_from(session, wipingStorage());
    tavrin::Secret text(serializeSecretJSON(json));
    keychain_.write(service_, sessionAccount, std::move(text), changeOf(sessionAccount));
}

void KeychainStore::remove() {
    ++changeCount_;
    fingerprint_ = QByteArray();
    // Earlier versions had one item for each field.
    for (const char* account :
         {sessionAccount, "refreshToken", "uid", "accountEmail", "accountHandle"}) {
        keychain_.remove(service_, account, changeOf(account));
    }
}

QCoro::Task<std::optional<tavrin::PlatformError>>
KeychainStore::settled(tavrin::CancellationToken cancellation) const {
    cancellation.throwIfCancelled();
    const std::shared_ptr<Changes> changes = changes_;
    if (changes->pending > 0) {
        if (!changes->end) {
            changes->end.emplace();
        }
        co_await changes->end->settled(cancellation);
    }
    if (changes->failures.empty()) {
        co_return std::nullopt;
    }
    const std::optional<tavrin::PlatformError> failure = changes->failures.begin()->second;
    co_return failure;
}

Keychain::ChangeCompletion KeychainStore::changeOf(std::string account) const {
    ++changes_->pending;
    return [changes = changes_,
            account = std::move(account)](const std::optional<tavrin::PlatformError>& failure) {
        changes->failures.erase(account);
        if (failure) {
            changes->failures.emplace(account, *failure);
        }
        if (--changes->pending == 0) {
            if (const auto end = std::exchange(changes->end, std::nullopt)) {
                end->resolve();
            }
        }
    };
}

} // namespace orvel
