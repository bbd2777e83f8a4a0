// SPDX-License-Identifier: Apache-2.0
#include "tests/support/TestCertificates.h"

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <array>
#include <stdexcept>

namespace orvel::test {

namespace {

void check(bool isDone) {
    if (!isDone) {
        throw std::runtime_error("OpenSSL could not make a certificate.");
    }
}

void addExtension(X509* certificate, X509* issuer, int kind, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, &context, kind, value);
    check(extension != nullptr);
    check(X509_add_ext(certificate, extension, -1) == 1);
    X509_EXTENSION_free(extension);
}

/// A new key and an unsigned certificate with a new serial number.
CertificateWithKey
unsignedCertificate(const std::string& name, std::chrono::hours from, std::chrono::hours to) {
    CertificateWithKey made{{X509_new(), X509_free}, {EVP_EC_gen("P-256"), EVP_PKEY_free}};
    X509* const certificate = made.certificate.get();
    check(certificate != nullptr && made.key != nullptr);
    std::array<unsigned char, 8> serial{};
    check(RAND_bytes(serial.data(), int{serial.size()}) == 1);
    BIGNUM* const number = BN_bin2bn(serial.data(), int{serial.size()}, nullptr);
    BN_to_ASN1_INTEGER(number, X509_get_serialNumber(certificate));
    BN_free(number);
    check(X509_set_version(certificate, X509_VERSION_3) == 1);
    const auto seconds = [](std::chrono::hours hours) {
        return static_cast<long>(std::chrono::seconds(hours).count());
    };
    X509_gmtime_adj(X509_getm_notBefore(certificate), seconds(from));
    X509_gmtime_adj(X509_getm_notAfter(certificate), seconds(to));
    check(X509_set_pubkey(certificate, made.key.get()) == 1);
    check(
        X509_NAME_add_entry_by_txt(
            X509_get_subject_name(certificate),
            "CN",
            MBSTRING_UTF8,
            reinterpret_cast<const unsigned char*>(name.data()),
            static_cast<int>(name.size()),
            -1,
            0) == 1);
    return made;
}

} // namespace

CertificateAuthority::CertificateAuthority()
    : own_(unsignedCertificate("Test authority", std::chrono::hours(-48), std::chrono::hours(48))) {
    X509* const certificate = own_.certificate.get();
    check(X509_set_issuer_name(certificate, X509_get_subject_name(certificate)) == 1);
    addExtension(certificate, certificate, NID_basic_constraints, "critical,CA:TRUE");
    addExtension(certificate, certificate, NID_key_usage, "critical,keyCertSign");
    addExtension(certificate, certificate, NID_subject_key_identifier, "hash");
    check(X509_sign(certificate, own_.key.get(), EVP_sha256()) > 0);
}

std::string CertificateAuthority::certificate() const {
    BIO* const memory = BIO_new(BIO_s_mem());
    check(memory != nullptr && PEM_write_bio_X509(memory, own_.certificate.get()) == 1);
    char* data = nullptr;
    const long length = BIO_get_mem_data(memory, &data);
    std::string text(data, static_cast<std::size_t>(length));
    BIO_free(memory);
    return text;
}

CertificateWithKey CertificateAuthority::issue(
    const std::string& names, std::chrono::hours from, std::chrono::hours to) const {
    CertificateWithKey issued = unsignedCertificate("Test server", from, to);
    X509* const certificate = issued.certificate.get();
    X509* const issuer = own_.certificate.get();
    check(X509_set_issuer_name(certificate, X509_get_subject_name(issuer)) == 1);
    addExtension(certificate, issuer, NID_subject_alt_name, names.c_str());
    addExtension(certificate, issuer, NID_authority_key_identifier, "keyid");
    addExtension(certificate, issuer, NID_ext_key_usage, "serverAuth");
    check(X509_sign(certificate, own_.key.get(), EVP_sha256()) > 0);
    return issued;
}

} // namespace orvel::test
