// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/base/Logger.h"
#include "OrvelAgent/scan/ContactBridge.h"
#include "core/CancellationToken.h"

#include <QCoroTask>
#include <QObject>

#include <filesystem>

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
        Worker& worker;
    };

    /// Checks both permissions once. Cancelling `lifetime` ends the pending tasks.
    Permissions(
        const Services& services,
        std::filesystem::path database,
        Logger log,
        tavrin::CancellationToken lifetime);

    /// Whether the Messages database can be read. False for a missing file too. Blocks on the disk.
    [[nodiscard]] static bool hasFullDiskAccess(const std::filesystem::path& database);

    /// Runs `hasFullDiskAccess` on the worker, which must outlive the task.
    static QCoro::Task<bool> probeFullDiskAccess(Worker* worker, std::filesystem::path database);

    /// Checks both permissions again. Never throws.
    QCoro::Task<> refresh();

    /// Asks the user for access to the address book and returns whether it can be read now. While
    /// the question is open, another call brings it to the front and returns false. Throws
    /// `TaskCancelled` when `lifetime` is cancelled.
    QCoro::Task<bool> requestContactsAccess();

    [[nodiscard]] bool hasFullDiskAccess() const { return hasFullDiskAccess_; }
    [[nodiscard]] ContactBridge::Availability contactsAvailability() const {
        return contactsAvailability_;
    }

Q_SIGNALS:
    void changed();

private:
    void updateContactsAvailability();

    const Services services_;
    const std::filesystem::path database_;
    const Logger log_;
    const tavrin::CancellationToken lifetime_;
    bool hasFullDiskAccess_;
    ContactBridge::Availability contactsAvailability_;
    bool isRequestingContacts_ = false;
};

} // namespace orvel
