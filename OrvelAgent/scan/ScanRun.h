// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/base/Logger.h"
#include "OrvelAgent/scan/CollectorService.h"
#include "OrvelAgent/scan/ContactBridge.h"
#include "OrvelAgent/scan/IngestClient.h"
#include "OrvelAgent/scan/ScanPlan.h"
#include "core/CancellationToken.h"
#include "core/CollectionPreferences.h"
#include "core/Date.h"
#include "platform/Clock.h"

#include <QCoroTask>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace orvel {

/// One scan from start to end: makes the plan, with the known handles of the service and of the
/// address book, and runs the collector.
///
/// Main thread. Borrows all references. Must outlive the tasks it returns.
class ScanRun final {
public:
    /// The user's choices.
    struct Choices {
        tavrin::CollectionMode mode = tavrin::CollectionPreferences::defaultMode;
        tavrin::ThreadScope scope = tavrin::CollectionPreferences::defaultScope;
    };

    enum class AddressBookUse {
        None,
        Read,
        /// Asks for access first if the user has not decided yet.
        AskAndRead,
    };

    struct Services {
        IngestClient ingest;
        ContactBridge& contacts;
        CollectorService& collector;
        Clock& clock;
        /// Returns the sign-in in force, or no value while the user is signed out.
        std::function<QCoro::Task<std::optional<AccountSession>>(tavrin::CancellationToken)>
            session;
    };

    ScanRun(Services services, const Choices& choices, Logger log);

    /// Returns the result of `CollectorService::runScan`, and no value if the session or the
    /// choices ended the run before that. Throws the errors of `Services::session`,
    /// `std::runtime_error` if the scope is known contacts only and their list cannot be fetched,
    /// and `TaskCancelled` if cancelled while the service or the address book is asked.
    QCoro::Task<std::optional<CollectorService::ScanSummary>>
    run(AddressBookUse addressBookUse,
        std::optional<tavrin::Date> since,
        tavrin::CancellationToken cancellation);

    /// Call it when the choices have changed. Ends the run at once if it would send something that
    /// they no longer allow.
    void applyChoices();

    /// Whether `applyChoices` ended the last run.
    [[nodiscard]] bool wasSuperseded() const { return wasSuperseded_; }

    /// Whether the last run had no session, or its session ended before it.
    [[nodiscard]] bool hasSessionEnded() const { return hasSessionEnded_; }

    /// Sends the lines in the name of the last run's session. Ignores all errors.
    QCoro::Task<>
    sendDiagnostics(std::vector<std::string> lines, tavrin::CancellationToken cancellation);

    /// Still true if an error ended the run in that step.
    [[nodiscard]] bool isConsultingAddressBook() const { return isConsultingAddressBook_; }

private:
    struct Running {
        Choices choices;
        tavrin::CancellationSource end;
    };

    QCoro::Task<ScanPlan> makePlan(
        AccountSession session,
        Choices choices,
        AddressBookUse addressBookUse,
        std::optional<tavrin::Date> since,
        tavrin::CancellationToken cancellation);
    QCoro::Task<ScanPlan::HintSet>
    fetchKnownHandles(tavrin::ThreadScope scope, tavrin::CancellationToken cancellation);

    const Services services_;
    const Choices& choices_;
    const Logger log_;
    std::optional<Running> running_;
    /// With the tokens of the last run's session, if there was one.
    std::optional<IngestClient> ingest_;
    tavrin::CancellationToken sessionEnded_;
    bool wasSuperseded_ = false;
    bool hasSessionEnded_ = false;
    bool isConsultingAddressBook_ = false;
};

} // namespace orvel
