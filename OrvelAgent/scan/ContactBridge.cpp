// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/scan/ContactBridge.h"

#include "OrvelAgent/base/Completion.h"
#include "OrvelAgent/base/Worker.h"
#include "core/messages/HandleNormalizer.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace orvel {

namespace {

using tavrin::Handle;
using AuthorizationStatus = AddressBook::AuthorizationStatus;

std::vector<std::string> matchHints(Handle::Kind kind, const std::vector<std::string>& values) {
    std::vector<std::string> hints;
    for (const std::string& value : values) {
        if (auto hint = tavrin::HandleNormalizer::matchHint(Handle(kind, value))) {
            hints.push_back(*std::move(hint));
        }
    }
    return hints;
}

ContactBridge::Expansion
widened(const ContactBridge::HintSet& hints, const std::vector<ContactCard>& cards) {
    ContactBridge::Expansion expansion;
    expansion.hints = hints;
    expansion.scanned = std::ssize(cards);
    for (const ContactCard& card : cards) {
        std::vector<std::string> own = matchHints(Handle::Kind::Email, card.emailAddresses);
        std::ranges::move(
            matchHints(Handle::Kind::Phone, card.phoneNumbers), std::back_inserter(own));
        // Compare with the given hints only: hints added by one card must not add further cards.
        if (std::ranges::any_of(own, [&](const auto& hint) { return hints.contains(hint); })) {
            std::ranges::move(own, std::inserter(expansion.hints, expansion.hints.end()));
        }
    }
    expansion.added = std::ssize(expansion.hints) - std::ssize(hints);
    return expansion;
}

std::optional<std::string> displayName(const ContactCard& card) {
    std::string name = card.givenName;
    if (!name.empty() && !card.familyName.empty()) {
        name += ' ';
    }
    name += card.familyName;
    if (name.empty()) {
        name = card.organizationName;
    }
    return name.empty() ? std::nullopt : std::optional(std::move(name));
}

ContactBridge::IdentityIndex indexed(const std::vector<ContactCard>& cards) {
    ContactBridge::IdentityIndex index;
    for (const ContactCard& card : cards) {
        const ContactBridge::Identity identity{
            displayName(card), matchHints(Handle::Kind::Email, card.emailAddresses)};
        for (std::string& hint : matchHints(Handle::Kind::Phone, card.phoneNumbers)) {
            index.insert_or_assign(std::move(hint), identity);
        }
        for (const std::string& email : identity.emails) {
            index.insert_or_assign(email, identity);
        }
    }
    return index;
}

} // namespace

ContactBridge::ContactBridge(AddressBook& addressBook, Worker& worker, LogStore& logStore)
    : addressBook_(addressBook), worker_(worker), log_(logStore, "contacts") {}

QCoro::Task<bool> ContactBridge::requestAccess(tavrin::CancellationToken cancellation) {
    cancellation.throwIfCancelled();
    log_.info("contacts access requested; status is {}", rawStatusName());
    if (isGranted()) {
        co_return true;
    }
    if (availability() == Availability::Denied) {
        co_return false;
    }
    auto request = [this](auto completion) {
        addressBook_.requestAccess(std::move(completion));
    };
    const bool isAllowed = co_await awaitCompletion<bool>(std::move(request), cancellation);
    log_.log("contacts request returned {}; status is now {}", isAllowed, rawStatusName());
    co_return isAllowed;
}

QCoro::Task<ContactBridge::Expansion>
ContactBridge::expand(HintSet hints, tavrin::CancellationToken cancellation) {
    cancellation.throwIfCancelled();
    if (hints.empty() || !isGranted()) {
        log_.log("address book not consulted; status {}, {} hints", rawStatusName(), hints.size());
        Expansion unchanged{std::move(hints), 0, 0};
        co_return unchanged;
    }
    AddressBook::Cards cards = co_await cardsWith(AddressBook::Fields::Identifiers, cancellation);
    const bool isUnreadable = cards.error.has_value();
    if (isUnreadable) {
        log_.log("could not read the address book: {}", cards.error->what());
        if (cards.cards.empty()) {
            Expansion unchanged{std::move(hints), 0, 0, true};
            co_return unchanged;
        }
    }
    const std::size_t given = hints.size();
    auto widen = [hints = std::move(hints), cards = std::move(cards.cards)] {
        return widened(hints, cards);
    };
    Expansion expansion = co_await worker_.run(std::move(widen));
    cancellation.throwIfCancelled();
    expansion.isUnreadable = isUnreadable;
    log_.log(
        "address book: {} contacts scanned, {} identifiers added to {} from the graph",
        expansion.scanned,
        expansion.added,
        given);
    co_return expansion;
}

QCoro::Task<ContactBridge::IdentityIndex>
ContactBridge::buildIdentityIndex(tavrin::CancellationToken cancellation) {
    cancellation.throwIfCancelled();
    if (!isGranted()) {
        co_return IdentityIndex();
    }
    AddressBook::Cards cards =
        co_await cardsWith(AddressBook::Fields::IdentifiersAndNames, cancellation);
    if (cards.error && cards.cards.empty()) {
        log_.error("could not build identity index: {}", cards.error->what());
        co_return IdentityIndex();
    }
    if (cards.error) {
        log_.error("the identity index is not complete: {}", cards.error->what());
    }
    auto build = [cards = std::move(cards.cards)] {
        return indexed(cards);
    };
    IdentityIndex index = co_await worker_.run(std::move(build));
    cancellation.throwIfCancelled();
    log_.log("address-book index: {} handle->identity entries", index.size());
    co_return index;
}

std::optional<ContactBridge::Identity>
ContactBridge::identity(std::string_view handle, const IdentityIndex& index) {
    const auto hint = tavrin::HandleNormalizer::matchHint(Handle::classify(handle));
    const auto entry = hint ? index.find(*hint) : index.end();
    return entry == index.end() ? std::nullopt : std::optional(entry->second);
}

ContactBridge::Availability ContactBridge::availability() const {
    switch (addressBook_.authorizationStatus()) {
    case AuthorizationStatus::Authorized:
    case AuthorizationStatus::Limited:
        return Availability::Granted;
    case AuthorizationStatus::Restricted:
    case AuthorizationStatus::Denied:
        return Availability::Denied;
    case AuthorizationStatus::NotDetermined:
        break;
    }
    return Availability::NotDetermined;
}

std::string ContactBridge::rawStatusName() const {
    const AuthorizationStatus status = addressBook_.authorizationStatus();
    switch (status) {
    case AuthorizationStatus::NotDetermined:
        return "notDetermined";
    case AuthorizationStatus::Restricted:
        return "restricted";
    case AuthorizationStatus::Denied:
        return "denied";
    case AuthorizationStatus::Authorized:
        return "authorized";
    case AuthorizationStatus::Limited:
        return "limited";
    }
    return fmt::format("unknown({})", static_cast<int>(status));
}

QCoro::Task<AddressBook::Cards>
ContactBridge::cardsWith(AddressBook::Fields fields, tavrin::CancellationToken cancellation) {
    auto enumerate = [this, fields](auto completion) {
        addressBook_.enumerateCards(fields, std::move(completion));
    };
    return awaitCompletion<AddressBook::Cards>(std::move(enumerate), std::move(cancellation));
}

} // namespace orvel
