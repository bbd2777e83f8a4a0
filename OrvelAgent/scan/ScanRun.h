// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/base/Logger.h"
#include "OrvelAgent/scan/CollectorService.h"
#include "OrvelAgent/scan/ContactBridge.h"
#include "OrvelAgent/scan/IngestClient.h"
#include "core/CancellationToken.h"
#include "core/CollectionPreferences.h"
#include "core/Date.h"

#include <QCoroTask>

#include <optional>

namespace orvel {

/// One scan from start to end: fetches the known handles, extends them from the address book, reads
/// the names, and runs the collector.
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

    /// Reads `choices` only when a step needs them, so a change during the preparation applies.
    ScanRun(
        IngestClient ingest,
        ContactBridge& contacts,
        CollectorService& collector,
        const Choices& choices,
        Logger log);

    /// Returns the result of `CollectorService::runScan`. Throws `std::runtime_error` if the scope
    /// is known contacts only and their list cannot be fetched, and `TaskCancelled` if cancelled
    /// while the service or the address book is asked.
    QCoro::Task<std::optional<CollectorService::ScanSummary>>
    run(AddressBookUse addressBookUse,
        std::optional<tavrin::Date> since,
        tavrin::CancellationToken cancellation);

    /// Still true if an error ended the run in that step.
    [[nodiscard]] bool isConsultingAddressBook() const { return isConsultingAddressBook_; }

private:
    QCoro::Task<CollectorService::HintSet>
    fetchKnownHandles(tavrin::CancellationToken cancellation);

    IngestClient ingest_;
    ContactBridge& contacts_;
    CollectorService& collector_;
    const Choices& choices_;
    const Logger log_;
    bool isConsultingAddressBook_ = false;
};

} // namespace orvel
