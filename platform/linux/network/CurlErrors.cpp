// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/network/CurlErrors.h"

#include <curl/curl.h>
#include <openssl/x509_vfy.h>

#include <cerrno>
#include <string>

namespace orvel {

namespace {

using tavrin::URLErrorCode;

URLErrorCode connectionErrorCode(long systemError) {
    switch (systemError) {
    case ENETDOWN:
    case ENETUNREACH:
        return URLErrorCode::NotConnectedToInternet;
    default:
        return URLErrorCode::CannotConnectToHost;
    }
}

URLErrorCode certificateErrorCode(long verifyResult) {
    switch (verifyResult) {
    case X509_V_ERR_CERT_NOT_YET_VALID:
    case X509_V_ERR_CERT_HAS_EXPIRED:
        return URLErrorCode::ServerCertificateHasBadDate;
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
        return URLErrorCode::ServerCertificateHasUnknownRoot;
    default:
        // Also a certificate for another host, for which OpenSSL reports no error.
        return URLErrorCode::ServerCertificateUntrusted;
    }
}

} // namespace

URLErrorCode urlErrorCode(const CurlFailure& failure) {
    switch (static_cast<CURLcode>(failure.code)) {
    case CURLE_URL_MALFORMAT:
        return URLErrorCode::BadURL;

    // libcurl does not distinguish a temporary lookup failure from an unknown name.
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_COULDNT_RESOLVE_HOST:
        return URLErrorCode::CannotFindHost;

    case CURLE_COULDNT_CONNECT:
        return connectionErrorCode(failure.systemError);
    case CURLE_NO_CONNECTION_AVAILABLE:
    case CURLE_PROXY:
        return URLErrorCode::CannotConnectToHost;

    case CURLE_OPERATION_TIMEDOUT:
        return URLErrorCode::TimedOut;
    case CURLE_ABORTED_BY_CALLBACK:
        return URLErrorCode::Cancelled;
    case CURLE_TOO_MANY_REDIRECTS:
        return URLErrorCode::HTTPTooManyRedirects;

    case CURLE_PARTIAL_FILE:
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_UNRECOVERABLE_POLL:
        return URLErrorCode::NetworkConnectionLost;

    // libcurl gets only https URLs, so the reply, not the URL, has the unknown protocol.
    case CURLE_UNSUPPORTED_PROTOCOL:
        return URLErrorCode::CannotParseResponse;
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_HTTP_RETURNED_ERROR:
        return URLErrorCode::BadServerResponse;
    case CURLE_BAD_CONTENT_ENCODING:
        return URLErrorCode::CannotDecodeContentData;

    // The receiver rejects only bodies that are too long.
    case CURLE_WRITE_ERROR:
    case CURLE_FILESIZE_EXCEEDED:
        return URLErrorCode::DataLengthExceedsMaximum;

    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_SHUTDOWN_FAILED:
        return URLErrorCode::SecureConnectionFailed;
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CLIENTCERT:
        return URLErrorCode::ClientCertificateRejected;
    case CURLE_PEER_FAILED_VERIFICATION:
        return certificateErrorCode(failure.verifyResult);
    // No server can be trusted without the system's certificates.
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_CRL_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
    case CURLE_SSL_INVALIDCERTSTATUS:
        return URLErrorCode::ServerCertificateUntrusted;

    // Local failures, errors of protocols and options that the agent does not use, and codes that a
    // newer libcurl adds.
    default:
        return URLErrorCode::Unknown;
    }
}

} // namespace orvel
