// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/UserDefaults.h"

#import <Foundation/Foundation.h>

#include <filesystem>
#include <memory>
#include <mutex>

namespace orvel {

NS_ASSUME_NONNULL_BEGIN

/// User defaults in a property list file. The system's user defaults cannot use a given file.
/// Binary, because a date in XML has only whole seconds.
///
/// Several processes may share the file. Each changes only the keys it sets. Changes by another
/// process become visible after this one's next write.
class PropertyListUserDefaults final : public tavrin::UserDefaults {
public:
    /// Treats a missing file as empty. Throws `tavrin::PlatformError` if the file cannot be read.
    explicit PropertyListUserDefaults(const std::filesystem::path& file);

    [[nodiscard]] std::optional<Value> value(std::string_view key) const override;
    void set(std::string_view key, Value value) override;
    void remove(std::string_view key) override;
    /// Locks the file of that name with ".inuse" added.
    [[nodiscard]] std::unique_ptr<Interface> tryLock() override;

private:
    using Values = NSDictionary<NSString*, id>;

    [[nodiscard]] id _Nullable object(std::string_view key) const;
    void write(std::string_view key, id _Nullable object);

    std::filesystem::path file_;
    /// Held until a write is on disk. Locked before `valuesMutex_`.
    std::mutex writeMutex_;
    mutable std::mutex valuesMutex_;
    /// The values on disk after the last read or write.
    Values* values_;
};

NS_ASSUME_NONNULL_END

} // namespace orvel
