// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/scan/ScanRun.h"

#include "OrvelAgent/network/APIError.h"

#include <QScopeGuard>

#include <cstdint>
#include <exception>
#include <stdexcept>
#include <utility>

namespace orvel {

namespace {

bool allowsLess(const ScanRun::Choices& now, const ScanRun::Choices& before) {
    using tavrin::CollectionMode;
    using tavrin::ThreadScope;
    return (now.mode == CollectionMode::MetadataOnly &&
            before.mode == CollectionMode::WithBodies) ||
           (now.scope == ThreadScope::KnownContactsOnly && before.scope == ThreadScope::AllThreads);
}

} // namespace

ScanRun::ScanRun(Services services, const Choices& choices, Logger log)
    : services_(std::move(services)), choices_(choices), log_(std::move(log)) {}

QCoro::Task<std::optional<CollectorService::ScanSummary>> ScanRun::run(
    AddressBookUse addressBookUse,
    std::optional<tavrin::Date> since,
    tavrin::CancellationToken cancellation) {
    const Choices choices = choices_;
    const std::uint64_t resets = services_.collector.resets();
    tavrin::CancellationSource end;
    const auto endRun = [end]() mutable {
        end.cancel();
    };
    wasSuperseded_ = false;
    hasSessionEnded_ = false;
    ingest_.reset();
    running_ = Running{choices, end};
    const auto whenDone = qScopeGuard([this] { running_.reset(); });
    const auto byCaller = cancellation.onCancel(endRun);
    try {
        std::optional<AccountSession> session = co_await services_.session(end.token());
        if (!session) {
            hasSessionEnded_ = true;
            co_return std::nullopt;
        }
        const auto bySignOut = session->ended.onCancel([this, end]() mutable {
            hasSessionEnded_ = true;
            end.cancel();
        });
        sessionEnded_ = session->ended;
        ingest_ = services_.ingest.authorizedBy(*session);
        ScanPlan plan =
            co_await makePlan(*std::move(session), choices, addressBookUse, since, end.token());
        plan.resets = resets;
        co_return co_await services_.collector.runScan(std::move(plan), end.token());
    } catch (const tavrin::TaskCancelled&) {
        cancellation.throwIfCancelled();
        // The session has ended, or the choices were narrowed. The next run follows them.
    }
    co_return std::nullopt;
}

QCoro::Task<ScanPlan> ScanRun::makePlan(
    AccountSession session,
    Choices choices,
    AddressBookUse addressBookUse,
    std::optional<tavrin::Date> since,
    tavrin::CancellationToken cancellation) {
    using Availability = ContactBridge::Availability;
    ContactBridge& contacts = services_.contacts;
    ScanPlan plan;
    plan.session = std::move(session);
    plan.startedAt = services_.clock.now();
    plan.mode = choices.mode;
    plan.scope = choices.scope;
    plan.since = since;
    ScanPlan::HintSet hints = co_await fetchKnownHandles(choices.scope, cancellation);
    const bool consultsAddressBook = !hints.empty();
    if (addressBookUse != AddressBookUse::None) {
        isConsultingAddressBook_ = true;
        if (addressBookUse == AddressBookUse::AskAndRead &&
            contacts.availability() == Availability::NotDetermined) {
            co_await contacts.requestAccess(cancellation);
        }
        ContactBridge::Expansion expansion =
            co_await contacts.expand(std::move(hints), cancellation);
        hints = std::move(expansion.hints);
        const bool isGranted = contacts.availability() == Availability::Granted;
        if (expansion.isUnreadable || contacts.isRestricted()) {
            plan.addressBook = ScanPlan::AddressBook::Unreadable;
        } else if (isGranted && consultsAddressBook) {
            plan.addressBook = ScanPlan::AddressBook::Read;
        }
        if (!isGranted) {
            services_.collector.noteContactsUnavailable();
        } else if (expansion.added == 0 && expansion.scanned > 0) {
            services_.collector.noteContactsAddedNothing(expansion.scanned);
        }
        plan.identities = std::make_shared<const ContactBridge::IdentityIndex>(
            co_await contacts.buildIdentityIndex(cancellation));
        isConsultingAddressBook_ = false;
    }
    plan.knownHandles = std::make_shared<const ScanPlan::HintSet>(std::move(hints));
    co_return plan;
}

void ScanRun::applyChoices() {
    if (running_ && allowsLess(choices_, running_->choices)) {
        wasSuperseded_ = true;
        tavrin::CancellationSource end = running_->end;
        end.cancel();
    }
}

QCoro::Task<>
ScanRun::sendDiagnostics(std::vector<std::string> lines, tavrin::CancellationToken cancellation) {
    if (!ingest_) {
        co_return;
    }
    const IngestClient ingest = *ingest_;
    const tavrin::LinkedCancellation either(cancellation, sessionEnded_);
    co_await ingest.sendDiagnostics(std::move(lines), either.token());
}

QCoro::Task<ScanPlan::HintSet>
ScanRun::fetchKnownHandles(tavrin::ThreadScope scope, tavrin::CancellationToken cancellation) {
    std::string failure;
    bool isReply = false;
    try {
        co_return co_await ingest_->fetchKnownHandleHints(cancellation);
    } catch (const APIError& error) {
        failure = error.what();
        isReply = true;
    } catch (const std::exception& error) {
        failure = error.what();
    }
    if (!isReply) {
        cancellation.throwIfCancelled();
    }
    if (scope == tavrin::ThreadScope::KnownContactsOnly) {
        throw std::runtime_error(
            "Could not fetch the known-contact list, so this scan was skipped rather than "
            "reporting a false empty result: " +
            failure);
    }
    // The reply has ended the session.
    cancellation.throwIfCancelled();
    log_.error("going on without the known-contact list: {}", failure);
    co_return ScanPlan::HintSet();
}

} // namespace orvel
