// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/UserDefaults.h"

#import <Foundation/Foundation.h>

#include <filesystem>
#include <mutex>

namespace orvel {

NS_ASSUME_NONNULL_BEGIN

/// User defaults in a property list of their own, which the system's have no public way for.
/// Binary, because a date in text has whole seconds only.
///
/// Processes that share the file change only the keys they set. What another process wrote is seen
/// from this one's next write on.
class PropertyListUserDefaults final : public tavrin::UserDefaults {
public:
    /// A missing file is an empty one. Throws `tavrin::PlatformError` when it cannot be read.
    explicit PropertyListUserDefaults(const std::filesystem::path& file);

    [[nodiscard]] std::optional<std::string> string(std::string_view key) const override;
    [[nodiscard]] std::optional<std::int64_t> integer(std::string_view key) const override;
    [[nodiscard]] std::optional<bool> boolean(std::string_view key) const override;
    [[nodiscard]] std::optional<tavrin::Date> date(std::string_view key) const override;

    void setString(std::string_view key, std::string_view value) override;
    void setInteger(std::string_view key, std::int64_t value) override;
    void setBoolean(std::string_view key, bool value) override;
    void setDate(std::string_view key, tavrin::Date value) override;
    void remove(std::string_view key) override;

private:
    using Values = NSDictionary<NSString*, id>;

    [[nodiscard]] id _Nullable object(std::string_view key) const;
    void write(std::string_view key, id _Nullable object);

    std::filesystem::path file_;
    /// Held while a write reaches the disk; taken before the other.
    std::mutex writeMutex_;
    mutable std::mutex valuesMutex_;
    /// What is on disk, as far as this process knows.
    Values* values_;
};

NS_ASSUME_NONNULL_END

} // namespace orvel
