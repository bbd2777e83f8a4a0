// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Errors.h"

#include <array>
#include <exception>

/// Which failures are worth another attempt after a pause.
namespace tavrin::TransientFailure {

inline constexpr std::array urlErrorCodes = {
    URLErrorCode::NetworkConnectionLost,
    URLErrorCode::TimedOut,
    URLErrorCode::NotConnectedToInternet,
    URLErrorCode::CannotConnectToHost,
    URLErrorCode::CannotFindHost,
    URLErrorCode::DNSLookupFailed,
    URLErrorCode::SecureConnectionFailed,
    URLErrorCode::DataNotAllowed,
    URLErrorCode::InternationalRoamingOff,
    URLErrorCode::CallIsActive,
};

/// A `URLError`, or a `PlatformError` of the URL-loading domain, with one of those codes. A
/// cancellation never is.
[[nodiscard]] bool isTransient(const std::exception_ptr& error);

/// 429, and 500 to 599.
[[nodiscard]] bool isTransient(int httpStatus);

} // namespace tavrin::TransientFailure
