// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/scan/ScanRun.h"

#include <exception>
#include <stdexcept>
#include <string>
#include <utility>

namespace orvel {

ScanRun::ScanRun(
    IngestClient ingest,
    ContactBridge& contacts,
    CollectorService& collector,
    const Choices& choices,
    Logger log)
    : ingest_(std::move(ingest)),
      contacts_(contacts),
      collector_(collector),
      choices_(choices),
      log_(std::move(log)) {}

QCoro::Task<std::optional<CollectorService::ScanSummary>> ScanRun::run(
    AddressBookUse addressBookUse,
    std::optional<tavrin::Date> since,
    tavrin::CancellationToken cancellation) {
    using Availability = ContactBridge::Availability;
    CollectorService::HintSet hints = co_await fetchKnownHandles(cancellation);
    ContactBridge::IdentityIndex identities;
    if (addressBookUse != AddressBookUse::None) {
        isConsultingAddressBook_ = true;
        if (addressBookUse == AddressBookUse::AskAndRead &&
            contacts_.availability() == Availability::NotDetermined) {
            co_await contacts_.requestAccess(cancellation);
        }
        ContactBridge::Expansion expansion =
            co_await contacts_.expand(std::move(hints), cancellation);
        hints = std::move(expansion.hints);
        if (contacts_.availability() != Availability::Granted) {
            collector_.noteContactsUnavailable();
        } else if (expansion.added == 0 && expansion.scanned > 0) {
            collector_.noteContactsAddedNothing(expansion.scanned);
        }
        identities = co_await contacts_.buildIdentityIndex(cancellation);
        isConsultingAddressBook_ = false;
    }
    co_return co_await collector_.runScan(
        choices_.mode,
        choices_.scope,
        std::move(hints),
        since,
        std::move(identities),
        std::move(cancellation));
}

QCoro::Task<CollectorService::HintSet>
ScanRun::fetchKnownHandles(tavrin::CancellationToken cancellation) {
    std::string failure;
    try {
        co_return co_await ingest_.fetchKnownHandleHints(cancellation);
    } catch (const std::exception& error) {
        failure = error.what();
    }
    cancellation.throwIfCancelled();
    if (choices_.scope == tavrin::ThreadScope::KnownContactsOnly) {
        throw std::runtime_error(
            "Could not fetch the known-contact list, so this scan was skipped rather than "
            "reporting a false empty result: " +
            failure);
    }
    log_.error("going on without the known-contact list: {}", failure);
    co_return CollectorService::HintSet();
}

} // namespace orvel
