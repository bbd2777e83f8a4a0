// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Errors.h"

#include <array>
#include <exception>

/// Decides which failures are retried after a pause.
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

/// Whether the error is a `URLError`, or a `PlatformError` of the URL-loading domain, with one of
/// those codes. Cancellations are not transient.
[[nodiscard]] bool isTransient(const std::exception_ptr& error);

/// 429, and 500 to 599.
[[nodiscard]] bool isTransient(int httpStatus);

} // namespace tavrin::TransientFailure
