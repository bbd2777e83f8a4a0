// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"

#import <Foundation/Foundation.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// The property-list objects that stand for the values of user defaults. Each reader gives nothing
/// for an object of another type, and for none.
namespace orvel::user_defaults_values {

NS_ASSUME_NONNULL_BEGIN

[[nodiscard]] id object(std::string_view text);
[[nodiscard]] id object(std::int64_t integer);
[[nodiscard]] id object(bool boolean);
/// Rounded to the millisecond.
[[nodiscard]] id object(tavrin::Date date);

[[nodiscard]] std::optional<std::string> string(id _Nullable object);
[[nodiscard]] std::optional<std::int64_t> integer(id _Nullable object);
[[nodiscard]] std::optional<bool> boolean(id _Nullable object);
[[nodiscard]] std::optional<tavrin::Date> date(id _Nullable object);

NS_ASSUME_NONNULL_END

} // namespace orvel::user_defaults_values
