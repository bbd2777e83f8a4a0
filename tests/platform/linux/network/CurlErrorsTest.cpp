// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/network/CurlErrors.h"

#include "core/Errors.h"

#include <curl/curl.h>
#include <gtest/gtest.h>
#include <openssl/x509_vfy.h>

#include <array>
#include <cerrno>
#include <map>
#include <set>
#include <string>

namespace orvel::test {

namespace {

using tavrin::URLErrorCode;

/// All failures that the agent's HTTPS exchanges can have.
const std::map<int, URLErrorCode> transportFailures = {
    {CURLE_UNSUPPORTED_PROTOCOL, URLErrorCode::CannotParseResponse},
    {CURLE_URL_MALFORMAT, URLErrorCode::BadURL},
    {CURLE_COULDNT_RESOLVE_PROXY, URLErrorCode::CannotFindHost},
    {CURLE_COULDNT_RESOLVE_HOST, URLErrorCode::CannotFindHost},
    {CURLE_COULDNT_CONNECT, URLErrorCode::CannotConnectToHost},
    {CURLE_WEIRD_SERVER_REPLY, URLErrorCode::BadServerResponse},
    {CURLE_PARTIAL_FILE, URLErrorCode::NetworkConnectionLost},
    {CURLE_HTTP_RETURNED_ERROR, URLErrorCode::BadServerResponse},
    {CURLE_WRITE_ERROR, URLErrorCode::DataLengthExceedsMaximum},
    {CURLE_OPERATION_TIMEDOUT, URLErrorCode::TimedOut},
    {CURLE_SSL_CONNECT_ERROR, URLErrorCode::SecureConnectionFailed},
    {CURLE_ABORTED_BY_CALLBACK, URLErrorCode::Cancelled},
    {CURLE_TOO_MANY_REDIRECTS, URLErrorCode::HTTPTooManyRedirects},
    {CURLE_GOT_NOTHING, URLErrorCode::NetworkConnectionLost},
    {CURLE_SEND_ERROR, URLErrorCode::NetworkConnectionLost},
    {CURLE_RECV_ERROR, URLErrorCode::NetworkConnectionLost},
    {CURLE_SSL_CERTPROBLEM, URLErrorCode::ClientCertificateRejected},
    {CURLE_SSL_CIPHER, URLErrorCode::SecureConnectionFailed},
    {CURLE_PEER_FAILED_VERIFICATION, URLErrorCode::ServerCertificateUntrusted},
    {CURLE_BAD_CONTENT_ENCODING, URLErrorCode::CannotDecodeContentData},
    {CURLE_FILESIZE_EXCEEDED, URLErrorCode::DataLengthExceedsMaximum},
    {CURLE_SSL_CACERT_BADFILE, URLErrorCode::ServerCertificateUntrusted},
    {CURLE_SSL_SHUTDOWN_FAILED, URLErrorCode::SecureConnectionFailed},
    {CURLE_SSL_CRL_BADFILE, URLErrorCode::ServerCertificateUntrusted},
    {CURLE_SSL_ISSUER_ERROR, URLErrorCode::ServerCertificateUntrusted},
    {CURLE_NO_CONNECTION_AVAILABLE, URLErrorCode::CannotConnectToHost},
    {CURLE_SSL_PINNEDPUBKEYNOTMATCH, URLErrorCode::ServerCertificateUntrusted},
    {CURLE_SSL_INVALIDCERTSTATUS, URLErrorCode::ServerCertificateUntrusted},
    {CURLE_PROXY, URLErrorCode::CannotConnectToHost},
    {CURLE_SSL_CLIENTCERT, URLErrorCode::ClientCertificateRejected},
    {CURLE_UNRECOVERABLE_POLL, URLErrorCode::NetworkConnectionLost},
};

/// Failures of other protocols, unused options, or programming mistakes.
const std::set<int> otherFailures = {
    2,  4,  9,  10, 11, 12, 13, 14, 15, 16, 17, 19, 20, 21, 24, 25, 26, 27, 29, 30, 31, 32, 33,
    34, 36, 37, 38, 39, 40, 41, 43, 44, 45, 46, 48, 49, 50, 51, 53, 54, 57, 62, 64, 65, 66, 67,
    68, 69, 70, 71, 72, 73, 74, 75, 76, 78, 79, 81, 84, 85, 86, 87, 88, 92, 93, 94, 95, 96};

} // namespace

TEST(CurlErrorsTest, EveryCodeIsMappedExplicitly) {
    for (int code = 1; code < CURL_LAST; ++code) {
        const auto expected = transportFailures.find(code);
        EXPECT_NE(expected != transportFailures.end(), otherFailures.contains(code)) << code;
        EXPECT_EQ(
            urlErrorCode({code, 0, 0}),
            expected == transportFailures.end() ? URLErrorCode::Unknown : expected->second)
            << code << ": " << curl_easy_strerror(static_cast<CURLcode>(code));
    }
}

TEST(CurlErrorsTest, ACodeOfANewerLibraryIsUnknown) {
    EXPECT_EQ(urlErrorCode({10'000, 0, 0}), URLErrorCode::Unknown);
}

TEST(CurlErrorsTest, AFailedConnectionShowsWhetherThereIsANetwork) {
    for (const long error : {ENETUNREACH, ENETDOWN}) {
        EXPECT_EQ(
            urlErrorCode({CURLE_COULDNT_CONNECT, error, 0}), URLErrorCode::NotConnectedToInternet);
    }
    for (const long error : {0, ECONNREFUSED, EHOSTUNREACH, ETIMEDOUT, ECONNRESET}) {
        EXPECT_EQ(
            urlErrorCode({CURLE_COULDNT_CONNECT, error, 0}), URLErrorCode::CannotConnectToHost);
    }
}

TEST(CurlErrorsTest, ARejectedCertificateHasItsReason) {
    const std::map<long, URLErrorCode> expected = {
        {X509_V_OK, URLErrorCode::ServerCertificateUntrusted},
        {X509_V_ERR_CERT_HAS_EXPIRED, URLErrorCode::ServerCertificateHasBadDate},
        {X509_V_ERR_CERT_NOT_YET_VALID, URLErrorCode::ServerCertificateHasBadDate},
        {X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT, URLErrorCode::ServerCertificateHasUnknownRoot},
        {X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN, URLErrorCode::ServerCertificateHasUnknownRoot},
        {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT, URLErrorCode::ServerCertificateHasUnknownRoot},
        {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY,
         URLErrorCode::ServerCertificateHasUnknownRoot},
        {X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE, URLErrorCode::ServerCertificateHasUnknownRoot},
        {X509_V_ERR_CERT_REVOKED, URLErrorCode::ServerCertificateUntrusted},
        {X509_V_ERR_EE_KEY_TOO_SMALL, URLErrorCode::ServerCertificateUntrusted},
    };
    for (const auto& [verifyResult, code] : expected) {
        EXPECT_EQ(urlErrorCode({CURLE_PEER_FAILED_VERIFICATION, 0, verifyResult}), code)
            << verifyResult;
    }
}

TEST(CurlErrorsTest, EveryErrorHasItsSentence) {
    std::set<std::string> sentences;
    constexpr std::array codes = {
        URLErrorCode::Unknown,
        URLErrorCode::Cancelled,
        URLErrorCode::BadURL,
        URLErrorCode::TimedOut,
        URLErrorCode::UnsupportedURL,
        URLErrorCode::CannotFindHost,
        URLErrorCode::CannotConnectToHost,
        URLErrorCode::NetworkConnectionLost,
        URLErrorCode::DNSLookupFailed,
        URLErrorCode::HTTPTooManyRedirects,
        URLErrorCode::NotConnectedToInternet,
        URLErrorCode::BadServerResponse,
        URLErrorCode::CannotDecodeContentData,
        URLErrorCode::CannotParseResponse,
        URLErrorCode::InternationalRoamingOff,
        URLErrorCode::CallIsActive,
        URLErrorCode::DataNotAllowed,
        URLErrorCode::DataLengthExceedsMaximum,
        URLErrorCode::SecureConnectionFailed,
        URLErrorCode::ServerCertificateHasBadDate,
        URLErrorCode::ServerCertificateUntrusted,
        URLErrorCode::ServerCertificateHasUnknownRoot,
        URLErrorCode::ClientCertificateRejected};
    for (const URLErrorCode code : codes) {
        const tavrin::URLError error = urlError(code);
        EXPECT_EQ(error.code(), code);
        const std::string sentence = error.what();
        EXPECT_TRUE(sentence.ends_with('.')) << sentence;
        sentences.insert(sentence);
    }
    EXPECT_EQ(sentences.size(), codes.size());
}

} // namespace orvel::test
