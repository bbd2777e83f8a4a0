// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Keychain.h"

#include <QObject>

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orvel::test {

/// A keychain in memory. Tests can lock it, so that reads wait, or make its writes fail.
class FakeKeychain final : public Keychain {
public:
    using Name = std::pair<std::string, std::string>;

    /// The stored items, by service and account, as a new process would find them.
    std::map<Name, std::string> items;
    /// The names of all removed items, in order.
    std::vector<Name> removals;
    /// If set, changes fail with this error and are visible to this process only.
    std::optional<tavrin::PlatformError> writeError;
    /// Like `writeError`, for one account of any service.
    std::map<std::string, tavrin::PlatformError> errorsByAccount;
    /// If set, reads fail with this error.
    std::optional<tavrin::PlatformError> readError;
    /// The number of reads.
    int reads = 0;

    /// From now on reads wait.
    void lock() { isLocked_ = true; }

    [[nodiscard]] bool isReadWaiting() const { return !waiting_.empty(); }
    [[nodiscard]] std::size_t waitingReads() const { return waiting_.size(); }

    /// Completes the newest waiting read.
    void unlockLast() {
        later(std::move(waiting_.back()));
        waiting_.pop_back();
    }

    /// Completes the waiting reads.
    void unlock() {
        isLocked_ = false;
        for (auto& read : std::exchange(waiting_, {})) {
            later(std::move(read));
        }
    }

    void read(std::string service, std::string account, ReadCompletion completion) override {
        ++reads;
        auto answer = [completion = std::move(completion),
                       value = valueOf({std::move(service), std::move(account)}),
                       error = readError] {
            completion(error ? Reading{std::nullopt, error} : Reading{value, std::nullopt});
        };
        if (isLocked_) {
            waiting_.emplace_back(std::move(answer));
        } else {
            later(std::move(answer));
        }
    }

    void write(
        std::string service,
        std::string account,
        tavrin::Secret value,
        ChangeCompletion completion) override {
        const Name name(std::move(service), std::move(account));
        set(name, value.text());
        finish(name, std::move(completion));
    }

    void remove(std::string service, std::string account, ChangeCompletion completion) override {
        const Name name(std::move(service), std::move(account));
        removals.push_back(name);
        set(name, std::nullopt);
        finish(name, std::move(completion));
    }

private:
    [[nodiscard]] std::optional<tavrin::Secret> valueOf(const Name& name) const {
        if (const auto held = inMemory_.find(name); held != inMemory_.end()) {
            return held->second;
        }
        const auto item = items.find(name);
        return item == items.end() ? std::nullopt
                                   : std::optional(tavrin::Secret(std::string(item->second)));
    }

    [[nodiscard]] std::optional<tavrin::PlatformError> errorOf(const Name& name) const {
        const auto error = errorsByAccount.find(name.second);
        return error == errorsByAccount.end() ? writeError : error->second;
    }

    void set(const Name& name, const std::optional<std::string>& value) {
        if (errorOf(name)) {
            inMemory_[name] =
                value ? std::optional(tavrin::Secret(std::string(*value))) : std::nullopt;
        } else if (value) {
            items[name] = *value;
        } else {
            items.erase(name);
        }
    }

    void finish(const Name& name, ChangeCompletion completion) {
        later([completion = std::move(completion), error = errorOf(name)] { completion(error); });
    }

    void later(std::function<void()> job) {
        QMetaObject::invokeMethod(&callbackContext_, std::move(job), Qt::QueuedConnection);
    }

    std::map<Name, std::optional<tavrin::Secret>> inMemory_;
    bool isLocked_ = false;
    std::vector<std::function<void()>> waiting_;
    QObject callbackContext_;
};

} // namespace orvel::test
