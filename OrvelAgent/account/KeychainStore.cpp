// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/KeychainStore.h"

#include "OrvelAgent/base/SharedResult.h"

#include <cstddef>
#include <exception>
#include <map>
#include <utility>

namespace orvel {

/// Shared with the completions, which may come when the store is gone.
struct KeychainStore::Changes {
    std::size_t pending = 0;
    /// By key, until a later change of the same item succeeds.
    std::map<std::string, tavrin::PlatformError> failures;
    std::shared_ptr<SharedResult<void>> end;
};

KeychainStore::KeychainStore(Keychain& keychain, std::string service)
    : keychain_(keychain), service_(std::move(service)), changes_(std::make_shared<Changes>()) {}

QCoro::Task<std::optional<tavrin::Secret>>
KeychainStore::read(std::string key, tavrin::CancellationToken cancellation) const {
    cancellation.throwIfCancelled();
    const auto value = std::make_shared<Deferred<std::optional<tavrin::Secret>>>();
    keychain_.read(service_, std::move(key), [value](std::optional<tavrin::Secret> read) {
        value->resolve(std::move(read));
    });
    const auto registration = rejectWhenCancelled(cancellation, value);
    co_return co_await value->result();
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
            changes->end = std::make_shared<SharedResult<void>>();
        }
        const auto end = changes->end->waiter();
        const auto registration = rejectWhenCancelled(cancellation, end);
        co_await end->result();
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
            if (const auto end = std::exchange(changes->end, nullptr)) {
                end->resolve({});
            }
        }
    };
}

} // namespace orvel
