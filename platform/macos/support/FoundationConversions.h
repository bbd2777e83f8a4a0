// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"
#include "core/Errors.h"

#import <Foundation/Foundation.h>

#include <filesystem>
#include <string>
#include <string_view>

/// Converts between our types and the system's.
namespace orvel {

NS_ASSUME_NONNULL_BEGIN

/// Replaces ill-formed sequences.
[[nodiscard]] NSString* nsString(std::string_view text);
/// Well-formed UTF-8. Empty for nil.
[[nodiscard]] std::string utf8(NSString* _Nullable text);

[[nodiscard]] NSDate* nsDate(tavrin::Date date);
[[nodiscard]] tavrin::Date dateOf(NSDate* date);

[[nodiscard]] NSURL* fileURL(const std::filesystem::path& path);
[[nodiscard]] std::filesystem::path pathOf(NSURL* _Nullable file);

/// Keeps the system's description. An error without one keeps its domain and code.
[[nodiscard]] tavrin::PlatformError platformError(NSError* _Nullable error);

/// Like `platformError`. `Unknown` if the error is not from URL loading.
[[nodiscard]] tavrin::URLError urlError(NSError* _Nullable error);

NS_ASSUME_NONNULL_END

} // namespace orvel
