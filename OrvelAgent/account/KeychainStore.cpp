// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/KeychainStore.h"

#include "OrvelAgent/base/Completion.h"

#include <cstddef>
#include <exception>
#include <map>
#include <utility>

namespace orvel {

/// Shared with the completions, which may run after the store is destroyed.
struct KeychainStore::Changes {
    std::size_t pending = 0;
    /// By key. Removed when a later change of the same item succeeds.
    std::map<std::string, tavrin::PlatformError> failures;
    std::optional<Deferred<void>> end;
};

KeychainStore::KeychainStore(Keychain& keychain, std::string service)
    : keychain_(keychain), service_(std::move(service)), changes_(std::make_shared<Changes>()) {}

QCoro::Task<std::optional<tavrin::Secret>>
KeychainStore::read(std::string key, tavrin::CancellationToken cancellation) const {
    auto start = [this, key = std::move(key)](auto completion) {
        keychain_.read(service_, key, std::move(completion));
    };
    return awaitCompletion<std::optional<tavrin::Secret>>(
        std::move(start), std::move(cancellation));
}

void KeychainStore::write(std::string key, tavrin::Secret value) const {
    ++changes_->pending;
    keychain_.write(service_, key, std::move(value), completion(changes_, key));
}

void KeychainStore::remove(std::string key) const {
    ++changes_->pending;
    keychain_.remove(service_, key, completion(changes_, key));
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

Keychain::ChangeCompletion
KeychainStore::completion(std::shared_ptr<Changes> changes, std::string key) {
    return [changes = std::move(changes),
            key = std::move(key)](const std::optional<tavrin::PlatformError>& failure) {
        changes->failures.erase(key);
        if (failure) {
            changes->failures.emplace(key, *failure);
        }
        if (--changes->pending == 0) {
            if (const auto end = std::exchange(changes->end, std::nullopt)) {
                end->resolve();
            }
        }
    };
}

} // namespace orvel
