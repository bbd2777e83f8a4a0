// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/UserDefaults.h"

#import <Foundation/Foundation.h>

#include <memory>
#include <mutex>
#include <string>

namespace orvel {

NS_ASSUME_NONNULL_BEGIN

/// The system's user defaults of an application. A setter returns after the system's preferences
/// process has received the value. That process writes the file, even if this one ends.
class FoundationUserDefaults final : public tavrin::UserDefaults {
public:
    /// The defaults of the application with that identifier, or of this program if it is empty.
    /// Throws `tavrin::PlatformError` if the identifier is invalid.
    explicit FoundationUserDefaults(const std::string& identifier);

    [[nodiscard]] std::optional<Value> value(std::string_view key) const override;
    void set(std::string_view key, Value value) override;
    void remove(std::string_view key) override;
    /// Locks a file in the user's caches folder.
    [[nodiscard]] std::unique_ptr<Interface> tryLock() override;

private:
    void write(std::string_view key, id _Nullable object);

    /// Thread-safe, so reads need no lock.
    NSUserDefaults* defaults_;
    std::string identifier_;
    /// Held during a write and its rollback.
    std::mutex writeMutex_;
};

NS_ASSUME_NONNULL_END

} // namespace orvel
