// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/UserDefaults.h"

#import <Foundation/Foundation.h>

#include <optional>

/// Converts between values of user defaults and property-list objects.
namespace orvel::user_defaults_values {

NS_ASSUME_NONNULL_BEGIN

/// Dates are rounded to the millisecond.
[[nodiscard]] id object(const tavrin::UserDefaults::Value& value);

/// No value for nil or an object of another type.
[[nodiscard]] std::optional<tavrin::UserDefaults::Value> value(id _Nullable object);

NS_ASSUME_NONNULL_END

} // namespace orvel::user_defaults_values
