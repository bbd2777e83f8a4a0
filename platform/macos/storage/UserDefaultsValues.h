// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"

#import <Foundation/Foundation.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Converts between values of user defaults and property-list objects. A reader returns no value
/// for nil or an object of another type.
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
