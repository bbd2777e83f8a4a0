// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/UserDefaults.h"

#import <Foundation/Foundation.h>

#include <mutex>
#include <string>

namespace orvel {

NS_ASSUME_NONNULL_BEGIN

/// The user defaults that the system keeps for an application. A setter returns once the system's
/// own process for preferences has taken the value over: it survives this process, and that one
/// writes the file.
class FoundationUserDefaults final : public tavrin::UserDefaults {
public:
    /// Those of the application of that identifier, whichever program this one is; this program's
    /// own for none. Throws `tavrin::PlatformError` when there can be none of that name.
    explicit FoundationUserDefaults(const std::string& identifier);

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
    void write(std::string_view key, id _Nullable object);

    /// Thread-safe by itself; reads wait for no lock of ours.
    NSUserDefaults* defaults_;
    /// Held for a write with what takes it back.
    std::mutex writeMutex_;
};

NS_ASSUME_NONNULL_END

} // namespace orvel
