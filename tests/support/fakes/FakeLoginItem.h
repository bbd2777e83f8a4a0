// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/LoginItem.h"

#include <QObject>

#include <functional>
#include <optional>
#include <utility>
#include <vector>

namespace orvel::test {

/// A login item that only stores its state.
class FakeLoginItem final : public LoginItem {
public:
    Status current = Status::NotRegistered;
    /// If set, every function fails with this error and changes nothing.
    std::optional<tavrin::PlatformError> error;
    /// All registrations (true) and unregistrations (false), including failed ones.
    std::vector<bool> changes;
    int repairs = 0;

    void registerItem(Completion completion) override {
        change(true, Status::Enabled, std::move(completion));
    }

    void unregisterItem(Completion completion) override {
        change(false, Status::NotRegistered, std::move(completion));
    }

    void repairItem(Completion completion) override {
        ++repairs;
        later([completion = std::move(completion), result = error] { completion(result); });
    }

    void status(StatusCompletion completion) override {
        std::variant<Status, tavrin::PlatformError> result = current;
        if (error) {
            result = *error;
        }
        later([completion = std::move(completion), result] { completion(result); });
    }

private:
    void change(bool isRegistering, Status wanted, Completion completion) {
        changes.push_back(isRegistering);
        if (!error) {
            current = wanted;
        }
        later([completion = std::move(completion), result = error] { completion(result); });
    }

    void later(std::function<void()> job) {
        QMetaObject::invokeMethod(&callbackContext_, std::move(job), Qt::QueuedConnection);
    }

    QObject callbackContext_;
};

} // namespace orvel::test
