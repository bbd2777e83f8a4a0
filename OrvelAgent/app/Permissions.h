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

/// What only the user can grant: Full Disk Access and the address book. Main thread. Borrows the
/// services, and must outlive the tasks it returns.
class Permissions final : public QObject {
    Q_OBJECT

public:
    struct Services {
        ContactBridge& contacts;
        /// Logs why the question for the contacts had no effect.
        const CollectorService& collector;
        ApplicationFocus& focus;
        const ProcessControl& process;
        Worker& worker;
    };

    /// Looks at both once. The token ends what waits later.
    Permissions(
        const Services& services,
        std::filesystem::path database,
        Logger log,
        tavrin::CancellationToken lifetime);

    /// Whether a byte of the Messages database can be read. A missing file and a forbidden one give
    /// the same answer. Waits for the disk.
    [[nodiscard]] static bool hasFullDiskAccess(const std::filesystem::path& database);

    /// The same on the worker, which must outlive the probe.
    static QCoro::Task<bool> probeFullDiskAccess(Worker* worker, std::filesystem::path database);

    /// Looks at both again. Never throws.
    QCoro::Task<> refresh();

    /// Asks the user for the address book, and says whether it can be read now. While the question
    /// is open, another call only brings it to the front, and its result is false. Throws
    /// `TaskCancelled` at the end of the lifetime.
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
