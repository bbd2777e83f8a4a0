// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/KeychainStore.h"

#include "OrvelAgent/base/Completion.h"
#include "OrvelAgent/network/SecretJSON.h"

#include <boost/json/value_from.hpp>
#include <boost/json/value_to.hpp>

#include <cstddef>
#include <exception>
#include <map>
#include <utility>

namespace orvel {

namespace {

constexpr const char* sessionAccount = "session";

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

QCoro::Task<std::optional<Session>>
KeychainStore::load(tavrin::CancellationToken cancellation) const {
    auto start = [this](auto completion) {
        keychain_.read(service_, sessionAccount, std::move(completion));
    };
    const auto text = co_await awaitCompletion<std::optional<tavrin::Secret>>(
        std::move(start), std::move(cancellation));
    if (!text) {
        co_return std::nullopt;
    }
    try {
        co_return boost::json::value_to<Session>(parseSecretJSON(text->text()));
    } catch (const std::exception&) {
        // Treat an unreadable session as missing.
        co_return std::nullopt;
    }
}

QCoro::Task<std::optional<Session>> KeychainStore::loadLatest(
    std::shared_ptr<const KeychainStore> store, tavrin::CancellationToken cancellation) {
    std::optional<Session> session;
    std::uint64_t saveCount = 0;
    do {
        saveCount = store->saveCount_;
        session = co_await store->load(cancellation);
    } while (saveCount != store->saveCount_);
    co_return session;
}

void KeychainStore::save(const Session& session) {
    ++saveCount_;
    const boost::json::value json = boost::json::value_from(session, wipingStorage());
    tavrin::Secret text(serializeSecretJSON(json));
    keychain_.write(service_, sessionAccount, std::move(text), changeOf(sessionAccount));
}

void KeychainStore::remove() const {
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
