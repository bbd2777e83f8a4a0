// SPDX-License-Identifier: Apache-2.0
#include "core/Errors.h"

#include "core/OutOfMemory.h"
#include "core/Text.h"

#include <new>
#include <system_error>

namespace tavrin {

namespace {

const char* sentence(URLErrorCode code) {
    switch (code) {
    case URLErrorCode::Unknown:
        break;
    case URLErrorCode::Cancelled:
        return "The request was cancelled.";
    case URLErrorCode::BadURL:
        return "The address of the server is not valid.";
    case URLErrorCode::TimedOut:
        return "The request timed out.";
    case URLErrorCode::UnsupportedURL:
        return "The address of the server is not of a supported kind.";
    case URLErrorCode::CannotFindHost:
        return "The server could not be found.";
    case URLErrorCode::CannotConnectToHost:
        return "Could not connect to the server.";
    case URLErrorCode::NetworkConnectionLost:
        return "The network connection was lost.";
    case URLErrorCode::DNSLookupFailed:
        return "The name of the server could not be looked up.";
    case URLErrorCode::HTTPTooManyRedirects:
        return "The server redirected the request too often.";
    case URLErrorCode::NotConnectedToInternet:
        return "There is no connection to the Internet.";
    case URLErrorCode::BadServerResponse:
        return "The server sent an invalid reply.";
    case URLErrorCode::CannotDecodeContentData:
        return "The reply of the server could not be decoded.";
    case URLErrorCode::CannotParseResponse:
        return "The reply of the server could not be understood.";
    case URLErrorCode::InternationalRoamingOff:
        return "International roaming is turned off.";
    case URLErrorCode::CallIsActive:
        return "A call is active and does not allow other connections.";
    case URLErrorCode::DataNotAllowed:
        return "The network does not allow data.";
    case URLErrorCode::DataLengthExceedsMaximum:
        return "The reply of the server is too long.";
    case URLErrorCode::SecureConnectionFailed:
        return "A secure connection to the server could not be made.";
    case URLErrorCode::ServerCertificateHasBadDate:
        return "The certificate of the server has expired or is not valid yet.";
    case URLErrorCode::ServerCertificateUntrusted:
        return "The certificate of the server is not trusted.";
    case URLErrorCode::ServerCertificateHasUnknownRoot:
        return "The certificate of the server comes from an unknown authority.";
    case URLErrorCode::ClientCertificateRejected:
        return "The server did not accept this computer's certificate.";
    }
    return "The request failed for an unknown reason.";
}

} // namespace

URLError urlError(URLErrorCode code) {
    return {code, sentence(code)};
}

PlatformError::PlatformError(std::string domain, int code, std::string_view description)
    : domain_(std::move(domain)), code_(code), description_(shownText(description)) {}

PlatformError PlatformError::fromErrno(int code, std::string_view doing) {
    return {
        std::string(posixErrorDomain),
        code,
        std::string(doing) + ": " + std::generic_category().message(code)};
}

std::string description(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const std::bad_alloc&) {
        // That of a library has no sentence.
        return OutOfMemory().what();
    } catch (const std::exception& exception) {
        return exception.what();
    } catch (...) {
        return "An unknown error occurred.";
    }
}

} // namespace tavrin
