// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/support/OpenSSL.h"

#include "platform/linux/support/LazyLibrary.h"

namespace orvel {

OpenSSL::OpenSSL(const LazyLibrary& library)
    : bioFree(library.symbol("BIO_free")),
      bioNewMemBuf(library.symbol("BIO_new_mem_buf")),
      cryptoGetExNewIndex(library.symbol("CRYPTO_get_ex_new_index")),
      errClearError(library.symbol("ERR_clear_error")),
      errPeekLastError(library.symbol("ERR_peek_last_error")),
      evpDigestVerify(library.symbol("EVP_DigestVerify")),
      evpDigestVerifyInit(library.symbol("EVP_DigestVerifyInit")),
      evpMdCtxFree(library.symbol("EVP_MD_CTX_free")),
      evpMdCtxNew(library.symbol("EVP_MD_CTX_new")),
      evpPkeyFree(library.symbol("EVP_PKEY_free")),
      evpPkeyNewRawPublicKey(library.symbol("EVP_PKEY_new_raw_public_key")),
      pemReadBioX509(library.symbol("PEM_read_bio_X509")),
      sslCtxGetCertStore(library.symbol("SSL_CTX_get_cert_store")),
      sslCtxGetExData(library.symbol("SSL_CTX_get_ex_data")),
      sslCtxSetExData(library.symbol("SSL_CTX_set_ex_data")),
      sslCtxSetInfoCallback(library.symbol("SSL_CTX_set_info_callback")),
      sslGetSSLCtx(library.symbol("SSL_get_SSL_CTX")),
      x509StoreAddCert(library.symbol("X509_STORE_add_cert")),
      x509Free(library.symbol("X509_free")) {}

const OpenSSL& OpenSSL::get() {
    // Looking up a symbol in libssl also finds those of libcrypto, its dependency.
    static const OpenSSL openSSL{LazyLibrary(ORVEL_OPENSSL_LIBRARY)};
    return openSSL;
}

} // namespace orvel
