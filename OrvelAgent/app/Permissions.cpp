// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/app/Permissions.h"

#include "OrvelAgent/base/Worker.h"
#include "OrvelAgent/scan/CollectorService.h"
#include "core/Errors.h"
#include "core/RegularFile.h"
#include "platform/ApplicationFocus.h"
#include "platform/ProcessControl.h"

#include <QScopedValueRollback>

#include <unistd.h>

#include <exception>
#include <utility>

namespace orvel {

namespace {

/// While it exists, the application has the activation policy `Regular`, so that the question opens
/// in front of other windows.
class RegularApplication final {
public:
    explicit RegularApplication(ApplicationFocus& focus)
        : focus_(focus), previousPolicy_(focus.activationPolicy()) {
        focus_.setActivationPolicy(ApplicationFocus::ActivationPolicy::Regular);
        focus_.activate();
    }
    ~RegularApplication() { focus_.setActivationPolicy(previousPolicy_); }
    RegularApplication(const RegularApplication&) = delete;
    RegularApplication& operator=(const RegularApplication&) = delete;

private:
    ApplicationFocus& focus_;
    ApplicationFocus::ActivationPolicy previousPolicy_;
};

} // namespace

Permissions::Permissions(
    const Services& services,
    std::filesystem::path database,
    Logger log,
    tavrin::CancellationToken lifetime)
    : services_(services),
      database_(std::move(database)),
      log_(std::move(log)),
      lifetime_(std::move(lifetime)),
      contactsAvailability_(services_.contacts.availability()),
      firstCheck_(checkFirst()) {}

bool Permissions::hasFullDiskAccess(const std::filesystem::path& database) {
    try {
        const tavrin::RegularFile file = tavrin::openRegularFile(database);
        char byte = 0;
        return ::read(file.descriptor.get(), &byte, 1) >= 0;
    } catch (const tavrin::PlatformError&) {
        return false;
    }
}

QCoro::Task<bool> Permissions::probeFullDiskAccess(Worker* worker, std::filesystem::path database) {
    auto probe = [database = std::move(database)] {
        return hasFullDiskAccess(database);
    };
    co_return co_await worker->run(std::move(probe));
}

QCoro::Task<> Permissions::checkFirst() {
    co_await refresh();
    firstCheckEnd_.resolve();
}

QCoro::Task<> Permissions::refresh() {
    try {
        const bool hasAccess = co_await probeFullDiskAccess(&services_.worker, database_);
        if (lifetime_.isCancelled()) {
            co_return;
        }
        if (std::exchange(hasFullDiskAccess_, hasAccess) != hasAccess) {
            Q_EMIT changed();
        }
        updateContactsAvailability();
    } catch (const std::exception& error) {
        log_.error("could not look at the permissions: {}", error.what());
    }
}

QCoro::Task<bool> Permissions::requestContactsAccess() {
    if (services_.process.isDebuggerAttached()) {
        services_.collector.noteDebuggerBlocksPrompt();
        co_return false;
    }
    if (isRequestingContacts_) {
        services_.focus.activate();
        co_await services_.contacts.requestAccess(lifetime_);
        co_return false;
    }
    {
        const QScopedValueRollback<bool> requesting(isRequestingContacts_, true);
        const RegularApplication regular(services_.focus);
        const bool isGranted = co_await services_.contacts.requestAccess(lifetime_);
        if (!isGranted) {
            services_.collector.noteContactsRequestIgnored();
        }
    }
    updateContactsAvailability();
    co_return contactsAvailability_ == ContactBridge::Availability::Granted;
}

void Permissions::updateContactsAvailability() {
    const ContactBridge::Availability now = services_.contacts.availability();
    if (std::exchange(contactsAvailability_, now) != now) {
        Q_EMIT changed();
    }
}

} // namespace orvel
