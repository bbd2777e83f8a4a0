// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace tavrin {

/// The domain of URL-loading codes in a `PlatformError`.
inline constexpr std::string_view urlErrorDomain = "NSURLErrorDomain";
/// The domain of `errno` codes in a `PlatformError`.
inline constexpr std::string_view posixErrorDomain = "NSPOSIXErrorDomain";

/// The URL-loading error codes that the agent distinguishes, with the platform's numbers. The
/// platform may report other codes.
enum class URLErrorCode : int {
    Unknown = -1,
    Cancelled = -999,
    BadURL = -1000,
    TimedOut = -1001,
    UnsupportedURL = -1002,
    CannotFindHost = -1003,
    CannotConnectToHost = -1004,
    NetworkConnectionLost = -1005,
    DNSLookupFailed = -1006,
    HTTPTooManyRedirects = -1007,
    NotConnectedToInternet = -1009,
    BadServerResponse = -1011,
    CannotDecodeContentData = -1016,
    CannotParseResponse = -1017,
    InternationalRoamingOff = -1018,
    CallIsActive = -1019,
    DataNotAllowed = -1020,
    DataLengthExceedsMaximum = -1103,
    SecureConnectionFailed = -1200,
    ServerCertificateHasBadDate = -1201,
    ServerCertificateUntrusted = -1202,
    ServerCertificateHasUnknownRoot = -1203,
    ClientCertificateRejected = -1205,
};

/// A request without a complete reply. `what()` is a sentence for the user.
class URLError final : public std::exception {
public:
    URLError(URLErrorCode code, std::string description)
        : code_(code), description_(std::move(description)) {}

    [[nodiscard]] URLErrorCode code() const { return code_; }
    [[nodiscard]] const char* what() const noexcept override { return description_.c_str(); }

private:
    URLErrorCode code_;
    std::string description_;
};

/// The error with a sentence for the user that contains neither host nor request.
[[nodiscard]] URLError urlError(URLErrorCode code);

/// An operating system error with its domain and code. `what()` is a sentence for the user.
class PlatformError final : public std::exception {
public:
    /// The description may quote another program: what may not be shown of it is replaced.
    PlatformError(std::string domain, int code, std::string_view description);

    /// From an `errno` value. The description is `doing`, a colon and the system's error text.
    [[nodiscard]] static PlatformError fromErrno(int code, std::string_view doing);

    [[nodiscard]] const std::string& domain() const { return domain_; }
    [[nodiscard]] int code() const { return code_; }
    [[nodiscard]] const char* what() const noexcept override { return description_.c_str(); }

private:
    std::string domain_;
    int code_;
    std::string description_;
};

/// The exception's `what()`, or a generic sentence for exceptions of other types.
[[nodiscard]] std::string description(const std::exception_ptr& error);

} // namespace tavrin
