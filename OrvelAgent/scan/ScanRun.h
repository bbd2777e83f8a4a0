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
/// Main thread. Borrows everything but the client, and must outlive the tasks it returns.
class ScanRun final {
public:
    /// What the user wants to be collected.
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

    /// The result is that of `CollectorService::runScan`. Throws `std::runtime_error` when only
    /// known contacts may be sent and the list of them cannot be fetched, and `TaskCancelled` when
    /// cancelled before the collector runs.
    QCoro::Task<std::optional<CollectorService::ScanSummary>>
    run(AddressBookUse addressBookUse,
        std::optional<tavrin::Date> since,
        tavrin::CancellationToken cancellation);

    /// Stays true when the run ended there.
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
