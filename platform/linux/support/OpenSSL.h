// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/support/LazyLibrary.h"

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

namespace orvel {

/// The functions used of OpenSSL's two libraries, which are loaded at the first request or
/// signature check.
struct OpenSSL {
    /// Throws `tavrin::PlatformError` when they cannot be loaded. Thread-safe.
    static const OpenSSL& get();

    LazyLibrary library;
    decltype(&BIO_free) bioFree = library.symbol("BIO_free");
    decltype(&BIO_new_mem_buf) bioNewMemBuf = library.symbol("BIO_new_mem_buf");
    decltype(&CRYPTO_get_ex_new_index) cryptoGetExNewIndex =
        library.symbol("CRYPTO_get_ex_new_index");
    decltype(&ERR_clear_error) errClearError = library.symbol("ERR_clear_error");
    decltype(&ERR_peek_last_error) errPeekLastError = library.symbol("ERR_peek_last_error");
    decltype(&EVP_DigestVerify) evpDigestVerify = library.symbol("EVP_DigestVerify");
    decltype(&EVP_DigestVerifyInit) evpDigestVerifyInit = library.symbol("EVP_DigestVerifyInit");
    decltype(&EVP_MD_CTX_free) evpMdCtxFree = library.symbol("EVP_MD_CTX_free");
    decltype(&EVP_MD_CTX_new) evpMdCtxNew = library.symbol("EVP_MD_CTX_new");
    decltype(&EVP_Q_digest) evpQDigest = library.symbol("EVP_Q_digest");
    decltype(&EVP_PKEY_free) evpPkeyFree = library.symbol("EVP_PKEY_free");
    decltype(&EVP_PKEY_new_raw_public_key) evpPkeyNewRawPublicKey =
        library.symbol("EVP_PKEY_new_raw_public_key");
    decltype(&OPENSSL_thread_stop) openSSLThreadStop = library.symbol("OPENSSL_thread_stop");
    decltype(&PEM_read_bio_X509) pemReadBioX509 = library.symbol("PEM_read_bio_X509");
    decltype(&SSL_CTX_get_cert_store) sslCtxGetCertStore = library.symbol("SSL_CTX_get_cert_store");
    decltype(&SSL_CTX_get_ex_data) sslCtxGetExData = library.symbol("SSL_CTX_get_ex_data");
    decltype(&SSL_CTX_set_ex_data) sslCtxSetExData = library.symbol("SSL_CTX_set_ex_data");
    decltype(&SSL_CTX_set_info_callback) sslCtxSetInfoCallback =
        library.symbol("SSL_CTX_set_info_callback");
    decltype(&SSL_get_SSL_CTX) sslGetSSLCtx = library.symbol("SSL_get_SSL_CTX");
    decltype(&X509_STORE_add_cert) x509StoreAddCert = library.symbol("X509_STORE_add_cert");
    decltype(&X509_free) x509Free = library.symbol("X509_free");
};

} // namespace orvel
