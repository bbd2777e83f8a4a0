// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"
#include "core/Errors.h"

#import <Foundation/Foundation.h>

#include <filesystem>
#include <string>
#include <string_view>

/// Between the types of our own interfaces and those of the system's.
namespace orvel {

NS_ASSUME_NONNULL_BEGIN

/// Ill-formed sequences are replaced.
[[nodiscard]] NSString* nsString(std::string_view text);
/// Well-formed UTF-8; empty for no text.
[[nodiscard]] std::string utf8(NSString* _Nullable text);

[[nodiscard]] NSDate* nsDate(tavrin::Date date);
[[nodiscard]] tavrin::Date dateOf(NSDate* date);

[[nodiscard]] NSURL* fileURL(const std::filesystem::path& path);
[[nodiscard]] std::filesystem::path pathOf(NSURL* _Nullable file);

/// With the system's own words; an error without any still has a domain and a code.
[[nodiscard]] tavrin::PlatformError platformError(NSError* _Nullable error);

/// As above; of any other domain than that of URL loading it is an unknown one.
[[nodiscard]] tavrin::URLError urlError(NSError* _Nullable error);

NS_ASSUME_NONNULL_END

} // namespace orvel
