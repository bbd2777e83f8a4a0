// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/base/Deferred.h"
#include "OrvelAgent/base/Logger.h"
#include "OrvelAgent/scan/ContactBridge.h"
#include "core/CancellationToken.h"

#include <QCoroTask>
#include <QObject>

#include <filesystem>
#include <utility>

namespace orvel {

class ApplicationFocus;
class CollectorService;
class ProcessControl;
class Worker;

/// Checks and requests what only the user can grant: Full Disk Access and the address book.
///
/// Main thread. Borrows the services. Must outlive the tasks that it returns.
class Permissions final : public QObject {
    Q_OBJECT

public:
    struct Services {
        ContactBridge& contacts;
        /// Logs why a request for the contacts had no effect.
        const CollectorService& collector;
        ApplicationFocus& focus;
        const ProcessControl& process;
        /// May hang while the disk of the Messages database does not answer.
        Worker& worker;
    };

    /// Starts the first check. Cancelling `lifetime` ends the pending tasks.
    Permissions(
        const Services& services,
        std::filesystem::path database,
        Logger log,
        tavrin::CancellationToken lifetime);

    /// Whether the Messages database can be read. False for a missing file too, and for what is no
    /// regular file. Blocks on the disk.
    [[nodiscard]] static bool hasFullDiskAccess(const std::filesystem::path& database);

    /// Runs `hasFullDiskAccess` on the worker, which must outlive the task.
    static QCoro::Task<bool> probeFullDiskAccess(Worker* worker, std::filesystem::path database);

    /// Waits for the first check. Throws `TaskCancelled` when the token is cancelled.
    QCoro::Task<> checked(tavrin::CancellationToken cancellation) const {
        return firstCheckEnd_.settled(std::move(cancellation));
    }

    /// Checks both permissions again. Never throws.
    QCoro::Task<> refresh();

    /// Asks the user for access to the address book and returns whether it can be read now. While
    /// the question is open, another call brings it to the front and returns false. Throws
    /// `TaskCancelled` when `lifetime` is cancelled.
    QCoro::Task<bool> requestContactsAccess();

    /// True until the first check has found that it is missing, so that nothing is reported before.
    [[nodiscard]] bool hasFullDiskAccess() const { return hasFullDiskAccess_; }
    [[nodiscard]] ContactBridge::Availability contactsAvailability() const {
        return contactsAvailability_;
    }

Q_SIGNALS:
    void changed();

private:
    QCoro::Task<> checkFirst();
    void updateContactsAvailability();

    const Services services_;
    const std::filesystem::path database_;
    const Logger log_;
    const tavrin::CancellationToken lifetime_;
    bool hasFullDiskAccess_ = true;
    ContactBridge::Availability contactsAvailability_;
    bool isRequestingContacts_ = false;
    const Deferred<void> firstCheckEnd_;
    QCoro::Task<> firstCheck_;
};

} // namespace orvel
