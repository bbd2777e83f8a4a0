// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/app/SavedChoices.h"

#include "OrvelAgent/base/Worker.h"
#include "core/UserDefaultsKeys.h"
#include "platform/LoginItem.h"

#include <fmt/format.h>

#include <exception>
#include <utility>

namespace orvel {

SavedChoices::SavedChoices(
    tavrin::UserDefaults& defaults,
    LoginItem& loginItem,
    Worker& worker,
    Logger log,
    std::string displayName)
    : defaults_(defaults),
      loginItem_(loginItem),
      worker_(worker),
      log_(std::move(log)),
      displayName_(std::move(displayName)),
      startAtLogin_(
          storedValue<bool>(defaults, tavrin::UserDefaultsKeys::startAtLoginKey).value_or(false)) {
    const tavrin::CollectionPreferences preferences(defaults_);
    collection_.mode = preferences.mode();
    collection_.scope = preferences.scope();
    if (startAtLogin_) {
        loginItem_.repairItem(reportLoginItem());
    }
}

void SavedChoices::setMode(tavrin::CollectionMode mode) {
    collection_.mode = mode;
    save([mode](tavrin::UserDefaults& defaults) {
        tavrin::CollectionPreferences(defaults).setMode(mode);
    });
    Q_EMIT changed();
}

void SavedChoices::setScope(tavrin::ThreadScope scope) {
    collection_.scope = scope;
    save([scope](tavrin::UserDefaults& defaults) {
        tavrin::CollectionPreferences(defaults).setScope(scope);
    });
    Q_EMIT changed();
}

void SavedChoices::setStartAtLogin(bool startsAtLogin) {
    startAtLogin_ = startsAtLogin;
    save([startsAtLogin](tavrin::UserDefaults& defaults) {
        defaults.set(tavrin::UserDefaultsKeys::startAtLoginKey, startsAtLogin);
    });
    // The user's choice is kept even if the system refuses the login item.
    if (startsAtLogin) {
        loginItem_.registerItem(reportLoginItem());
    } else {
        loginItem_.unregisterItem(reportLoginItem());
    }
    Q_EMIT changed();
}

std::function<void(std::optional<tavrin::PlatformError>)> SavedChoices::reportLoginItem() const {
    return [log = log_](const std::optional<tavrin::PlatformError>& failure) {
        if (failure) {
            log.info("could not change the login item: {}", failure->what());
        }
    };
}

QCoro::Task<> SavedChoices::save(std::function<void(tavrin::UserDefaults&)> write) {
    auto job = [&defaults = defaults_, write = std::move(write)] {
        write(defaults);
    };
    std::optional<std::string> failure;
    try {
        co_await worker_.run(std::move(job));
    } catch (const std::exception& error) {
        failure = fmt::format(
            "Your last choice holds only until {} quits, because it could not be saved ({}).",
            displayName_,
            error.what());
        log_.error("{}", *failure);
    }
    if (error_ != failure) {
        error_ = std::move(failure);
        Q_EMIT changed();
    }
}

} // namespace orvel
