// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/base/Logger.h"
#include "OrvelAgent/scan/ScanRun.h"
#include "core/Errors.h"
#include "core/UserDefaults.h"

#include <QCoroTask>
#include <QObject>

#include <functional>
#include <optional>
#include <string>

namespace orvel {

class LoginItem;
class Worker;

/// The user's choices. A change applies at once and is saved on the worker. The constructor repairs
/// the login item, if the agent starts at login. Main thread. Borrows the defaults, the login item
/// and the worker.
class SavedChoices final : public QObject {
    Q_OBJECT

public:
    SavedChoices(
        tavrin::UserDefaults& defaults,
        LoginItem& loginItem,
        Worker& worker,
        Logger log,
        std::string displayName);

    void setMode(tavrin::CollectionMode mode);
    void setScope(tavrin::ThreadScope scope);
    /// Also changes the login item, even when the value is the same as before.
    void setStartAtLogin(bool startsAtLogin);

    [[nodiscard]] const ScanRun::Choices& collection() const { return collection_; }
    [[nodiscard]] bool startAtLogin() const { return startAtLogin_; }
    /// Why the last choice could not be saved. Empty if it was saved.
    [[nodiscard]] const std::optional<std::string>& error() const { return error_; }

Q_SIGNALS:
    void changed();

private:
    [[nodiscard]] std::function<void(std::optional<tavrin::PlatformError>)> reportLoginItem() const;
    QCoro::Task<> save(std::function<void(tavrin::UserDefaults&)> write);

    tavrin::UserDefaults& defaults_;
    LoginItem& loginItem_;
    Worker& worker_;
    const Logger log_;
    const std::string displayName_;
    ScanRun::Choices collection_;
    bool startAtLogin_;
    std::optional<std::string> error_;
};

} // namespace orvel
