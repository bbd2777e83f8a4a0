// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/SessionStore.h"

#include "OrvelAgent/account/SessionKeychainItem.h"
#include "OrvelAgent/network/SecretJSON.h"

#include <boost/json/value_from.hpp>
#include <boost/json/value_to.hpp>

#include <exception>
#include <utility>

namespace orvel {

SessionStore::SessionStore(Keychain& keychain, const std::string& bundleIdentifier)
    : keychain_(keychain, bundleIdentifier + SessionKeychainItem::serviceSuffix) {}

QCoro::Task<std::optional<Session>>
SessionStore::load(tavrin::CancellationToken cancellation) const {
    const std::optional<tavrin::Secret> text =
        co_await keychain_.read(SessionKeychainItem::account, std::move(cancellation));
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

QCoro::Task<std::optional<Session>> SessionStore::loadLatest(
    std::shared_ptr<const SessionStore> store, tavrin::CancellationToken cancellation) {
    std::optional<Session> session;
    std::uint64_t saveCount = 0;
    do {
        saveCount = store->saveCount_;
        session = co_await store->load(cancellation);
    } while (saveCount != store->saveCount_);
    co_return session;
}

void SessionStore::save(const Session& session) {
    ++saveCount_;
    const boost::json::value json = boost::json::value_from(session, wipingStorage());
    keychain_.write(SessionKeychainItem::account, tavrin::Secret(serializeSecretJSON(json)));
}

void SessionStore::remove() const {
    keychain_.remove(SessionKeychainItem::account);
    for (const char* account : SessionKeychainItem::earlierAccounts) {
        keychain_.remove(account);
    }
}

QCoro::Task<std::optional<tavrin::PlatformError>>
SessionStore::settled(tavrin::CancellationToken cancellation) const {
    return keychain_.settled(std::move(cancellation));
}

} // namespace orvel
