// SPDX-License-Identifier: Apache-2.0
#include "service/http/CertificateAuthority.h"

#include "service/support/PrivateFile.h"
#include "service/support/ServiceError.h"

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <array>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

namespace orvel::service {

namespace {

using Time = CertificateAuthority::Time;

template <auto release>
struct Release {
    template <typename Object>
    void operator()(Object* object) const {
        release(object);
    }
};
using Bio = std::unique_ptr<BIO, Release<BIO_free_all>>;
using BigNumber = std::unique_ptr<BIGNUM, Release<BN_free>>;
using Certificate = std::unique_ptr<X509, Release<X509_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Release<X509_EXTENSION_free>>;
using Key = std::unique_ptr<EVP_PKEY, Release<EVP_PKEY_free>>;

struct Identity {
    Certificate certificate;
    Key key;
};

constexpr std::chrono::days authorityLifetime(730);
// Clients reject server certificates that are valid for 398 days or more.
constexpr std::chrono::days serverLifetime(365);
constexpr std::chrono::days renewalMargin(30);
// A new certificate must stay valid if the clock is set back a little.
constexpr std::chrono::hours startMargin(1);

template <typename Result>
Result checked(Result result) {
    if (!result) {
        std::array<char, 256> reason{};
        ERR_error_string_n(ERR_get_error(), reason.data(), reason.size());
        throw ServiceError(ServiceError::Certificate{reason.data()});
    }
    return result;
}

std::time_t seconds(Time time) {
    return std::chrono::system_clock::to_time_t(time);
}

void addExtension(X509* certificate, X509* issuer, int kind, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const Extension extension(checked(X509V3_EXT_conf_nid(nullptr, &context, kind, value)));
    checked(X509_add_ext(certificate, extension.get(), -1));
}

/// Without the extensions and the signature.
Identity unsignedIdentity(const char* name, Time now, std::chrono::days lifetime) {
    Identity created{Certificate(checked(X509_new())), Key(checked(EVP_EC_gen("P-256")))};
    X509* certificate = created.certificate.get();
    checked(X509_set_version(certificate, X509_VERSION_3));
    const BigNumber serial(checked(BN_new()));
    checked(BN_rand(serial.get(), 127, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY));
    checked(BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(certificate)));
    checked(ASN1_TIME_set(X509_getm_notBefore(certificate), seconds(now - startMargin)));
    checked(ASN1_TIME_set(X509_getm_notAfter(certificate), seconds(now + lifetime)));
    const std::string text = name;
    checked(X509_NAME_add_entry_by_NID(
        X509_get_subject_name(certificate),
        NID_commonName,
        MBSTRING_UTF8,
        reinterpret_cast<const unsigned char*>(text.data()),
        static_cast<int>(text.size()),
        -1,
        0));
    checked(X509_set_pubkey(certificate, created.key.get()));
    return created;
}

Identity makeAuthority(Time now) {
    auto created = unsignedIdentity("Orvel local service authority", now, authorityLifetime);
    X509* certificate = created.certificate.get();
    checked(X509_set_issuer_name(certificate, X509_get_subject_name(certificate)));
    addExtension(certificate, certificate, NID_basic_constraints, "critical,CA:TRUE,pathlen:0");
    addExtension(certificate, certificate, NID_key_usage, "critical,keyCertSign");
    addExtension(
        certificate,
        certificate,
        NID_name_constraints,
        "critical,permitted;DNS:localhost,permitted;IP:127.0.0.1/255.255.255.255");
    addExtension(certificate, certificate, NID_subject_key_identifier, "hash");
    checked(X509_sign(certificate, created.key.get(), EVP_sha256()));
    return created;
}

Identity makeServer(const Identity& authority, Time now) {
    auto created = unsignedIdentity("localhost", now, serverLifetime);
    X509* certificate = created.certificate.get();
    X509* issuer = authority.certificate.get();
    checked(X509_set_issuer_name(certificate, X509_get_subject_name(issuer)));
    addExtension(certificate, issuer, NID_basic_constraints, "critical,CA:FALSE");
    addExtension(certificate, issuer, NID_key_usage, "critical,digitalSignature");
    addExtension(certificate, issuer, NID_ext_key_usage, "serverAuth");
    addExtension(certificate, issuer, NID_subject_alt_name, "DNS:localhost,IP:127.0.0.1");
    addExtension(certificate, issuer, NID_subject_key_identifier, "hash");
    addExtension(certificate, issuer, NID_authority_key_identifier, "keyid:always");
    checked(X509_sign(certificate, authority.key.get(), EVP_sha256()));
    return created;
}

std::string text(BIO* bio) {
    char* bytes = nullptr;
    const auto size = BIO_get_mem_data(bio, &bytes);
    return {bytes, static_cast<std::size_t>(size)};
}

std::string pem(X509* certificate) {
    const Bio bio(checked(BIO_new(BIO_s_mem())));
    checked(PEM_write_bio_X509(bio.get(), certificate));
    return text(bio.get());
}

std::string pem(EVP_PKEY* key) {
    const Bio bio(checked(BIO_new(BIO_s_mem())));
    checked(PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr));
    return text(bio.get());
}

std::string read(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

Bio reader(const std::string& content) {
    return Bio(checked(BIO_new_mem_buf(content.data(), static_cast<int>(content.size()))));
}

struct Files {
    std::filesystem::path certificate;
    std::filesystem::path key;
};

void save(const Identity& identity, const Files& files) {
    replacePrivateFile(files.key, pem(identity.key.get()));
    replacePrivateFile(files.certificate, pem(identity.certificate.get()));
}

/// The identity in the files, if key and certificate match and are valid beyond `renewalMargin`.
std::optional<Identity> load(const Files& files, Time now) {
    const auto certificateText = read(files.certificate);
    const auto keyText = read(files.key);
    // The default callback would ask for an encrypted key's passphrase at the terminal.
    const auto noPassphrase = [](char*, int, int, void*) {
        return -1;
    };
    Identity loaded{
        Certificate(
            PEM_read_bio_X509(reader(certificateText).get(), nullptr, noPassphrase, nullptr)),
        Key(PEM_read_bio_PrivateKey(reader(keyText).get(), nullptr, noPassphrase, nullptr))};
    const bool isWhole = loaded.certificate && loaded.key &&
                         X509_check_private_key(loaded.certificate.get(), loaded.key.get()) == 1;
    ERR_clear_error();
    if (!isWhole) {
        return std::nullopt;
    }
    auto start = seconds(now);
    auto end = seconds(now + renewalMargin);
    if (X509_cmp_time(X509_get0_notBefore(loaded.certificate.get()), &start) >= 0 ||
        X509_cmp_time(X509_get0_notAfter(loaded.certificate.get()), &end) <= 0) {
        return std::nullopt;
    }
    std::error_code ignored;
    std::filesystem::permissions(
        files.key,
        std::filesystem::perms::owner_read | std::filesystem::perms::owner_write,
        ignored);
    return loaded;
}

bool isIssuedBy(const Identity& authority, const Identity& server) {
    const bool result =
        X509_check_issued(authority.certificate.get(), server.certificate.get()) == X509_V_OK &&
        X509_verify(server.certificate.get(), authority.key.get()) == 1;
    ERR_clear_error();
    return result;
}

} // namespace

CertificateAuthority::CertificateAuthority(std::filesystem::path directory, Time now)
    : certificateFile_(directory / "authority.pem") {
    makePrivateDirectory(directory);
    const Files authorityFiles{certificateFile_, directory / "authority-key.pem"};
    auto authority = load(authorityFiles, now);
    if (!authority) {
        authority = makeAuthority(now);
        save(*authority, authorityFiles);
    }
    const Files serverFiles{directory / "server.pem", directory / "server-key.pem"};
    auto server = load(serverFiles, now);
    if (!server || !isIssuedBy(*authority, *server)) {
        server = makeServer(*authority, now);
        save(*server, serverFiles);
    }
    serverCertificate_ = pem(server->certificate.get());
    serverKey_ = pem(server->key.get());
}

} // namespace orvel::service
