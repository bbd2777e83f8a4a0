// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

namespace orvel {

class LazyLibrary;

/// The functions used of OpenSSL's two libraries, which are loaded at the first request or
/// signature check.
struct OpenSSL {
    /// Throws `tavrin::PlatformError` when they cannot be loaded. Thread-safe.
    static const OpenSSL& get();

    decltype(&BIO_free) bioFree;
    decltype(&BIO_new_mem_buf) bioNewMemBuf;
    decltype(&CRYPTO_get_ex_new_index) cryptoGetExNewIndex;
    decltype(&ERR_clear_error) errClearError;
    decltype(&ERR_peek_last_error) errPeekLastError;
    decltype(&EVP_DigestVerify) evpDigestVerify;
    decltype(&EVP_DigestVerifyInit) evpDigestVerifyInit;
    decltype(&EVP_MD_CTX_free) evpMdCtxFree;
    decltype(&EVP_MD_CTX_new) evpMdCtxNew;
    decltype(&EVP_PKEY_free) evpPkeyFree;
    decltype(&EVP_PKEY_new_raw_public_key) evpPkeyNewRawPublicKey;
    decltype(&PEM_read_bio_X509) pemReadBioX509;
    decltype(&SSL_CTX_get_cert_store) sslCtxGetCertStore;
    decltype(&SSL_CTX_get_ex_data) sslCtxGetExData;
    decltype(&SSL_CTX_set_ex_data) sslCtxSetExData;
    decltype(&SSL_CTX_set_info_callback) sslCtxSetInfoCallback;
    decltype(&SSL_get_SSL_CTX) sslGetSSLCtx;
    decltype(&X509_STORE_add_cert) x509StoreAddCert;
    decltype(&X509_free) x509Free;

private:
    explicit OpenSSL(const LazyLibrary& library);
};

} // namespace orvel
