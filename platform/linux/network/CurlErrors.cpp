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
    // No default case, so that the compiler reports codes that a newer libcurl adds.
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

    // Local failures without a specific code.
    case CURLE_FAILED_INIT:
    case CURLE_NOT_BUILT_IN:
    case CURLE_READ_ERROR:
    case CURLE_OUT_OF_MEMORY:
    case CURLE_FUNCTION_NOT_FOUND:
    case CURLE_BAD_FUNCTION_ARGUMENT:
    case CURLE_INTERFACE_FAILED:
    case CURLE_UNKNOWN_OPTION:
    case CURLE_SETOPT_OPTION_SYNTAX:
    case CURLE_SSL_ENGINE_NOTFOUND:
    case CURLE_SSL_ENGINE_SETFAILED:
    case CURLE_SSL_ENGINE_INITFAILED:
    case CURLE_SEND_FAIL_REWIND:
    case CURLE_AGAIN:
    case CURLE_RECURSIVE_API_CALL:

    // Errors of protocols and options that the agent does not use.
    case CURLE_REMOTE_ACCESS_DENIED:
    case CURLE_FTP_ACCEPT_FAILED:
    case CURLE_FTP_WEIRD_PASS_REPLY:
    case CURLE_FTP_ACCEPT_TIMEOUT:
    case CURLE_FTP_WEIRD_PASV_REPLY:
    case CURLE_FTP_WEIRD_227_FORMAT:
    case CURLE_FTP_CANT_GET_HOST:
    case CURLE_HTTP2:
    case CURLE_FTP_COULDNT_SET_TYPE:
    case CURLE_FTP_COULDNT_RETR_FILE:
    case CURLE_QUOTE_ERROR:
    case CURLE_UPLOAD_FAILED:
    case CURLE_FTP_PORT_FAILED:
    case CURLE_FTP_COULDNT_USE_REST:
    case CURLE_RANGE_ERROR:
    case CURLE_HTTP_POST_ERROR:
    case CURLE_BAD_DOWNLOAD_RESUME:
    case CURLE_FILE_COULDNT_READ_FILE:
    case CURLE_LDAP_CANNOT_BIND:
    case CURLE_LDAP_SEARCH_FAILED:
    case CURLE_USE_SSL_FAILED:
    case CURLE_LOGIN_DENIED:
    case CURLE_TFTP_NOTFOUND:
    case CURLE_TFTP_PERM:
    case CURLE_REMOTE_DISK_FULL:
    case CURLE_TFTP_ILLEGAL:
    case CURLE_TFTP_UNKNOWNID:
    case CURLE_REMOTE_FILE_EXISTS:
    case CURLE_TFTP_NOSUCHUSER:
    case CURLE_REMOTE_FILE_NOT_FOUND:
    case CURLE_SSH:
    case CURLE_FTP_PRET_FAILED:
    case CURLE_RTSP_CSEQ_ERROR:
    case CURLE_RTSP_SESSION_ERROR:
    case CURLE_FTP_BAD_FILE_LIST:
    case CURLE_CHUNK_FAILED:
    case CURLE_HTTP2_STREAM:
    case CURLE_AUTH_ERROR:
    case CURLE_HTTP3:
    case CURLE_QUIC_CONNECT_ERROR:

    // Values that libcurl no longer or never returns.
    case CURLE_OK:
    case CURLE_OBSOLETE20:
    case CURLE_OBSOLETE24:
    case CURLE_OBSOLETE29:
    case CURLE_OBSOLETE32:
    case CURLE_OBSOLETE40:
    case CURLE_OBSOLETE44:
    case CURLE_OBSOLETE46:
    case CURLE_OBSOLETE50:
    case CURLE_OBSOLETE51:
    case CURLE_OBSOLETE57:
    case CURLE_OBSOLETE62:
    case CURLE_OBSOLETE75:
    case CURLE_OBSOLETE76:
    case CURL_LAST:
        return URLErrorCode::Unknown;
    }
    return URLErrorCode::Unknown;
}

} // namespace orvel
