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
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

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

using Extensions = std::vector<std::pair<int, const char*>>;

/// Signed by the issuer, or by itself if there is none.
Identity makeIdentity(
    const char* name,
    Time now,
    std::chrono::days lifetime,
    const Identity* issuer,
    const Extensions& extensions) {
    Identity created{Certificate(checked(X509_new())), Key(checked(EVP_EC_gen("P-256")))};
    X509* certificate = created.certificate.get();
    const Identity& signer = issuer == nullptr ? created : *issuer;
    checked(X509_set_version(certificate, X509_VERSION_3));
    const BigNumber serial(checked(BN_new()));
    checked(BN_rand(serial.get(), 127, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY));
    checked(BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(certificate)));
    checked(ASN1_TIME_set(X509_getm_notBefore(certificate), seconds(now - startMargin)));
    checked(ASN1_TIME_set(X509_getm_notAfter(certificate), seconds(now + lifetime)));
    X509_NAME* subject = X509_get_subject_name(certificate);
    const auto* bytes = reinterpret_cast<const unsigned char*>(name);
    checked(X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8, bytes, -1, -1, 0));
    checked(X509_set_pubkey(certificate, created.key.get()));
    checked(X509_set_issuer_name(certificate, X509_get_subject_name(signer.certificate.get())));
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, signer.certificate.get(), certificate, nullptr, nullptr, 0);
    for (const auto& [kind, value] : extensions) {
        const Extension extension(checked(X509V3_EXT_conf_nid(nullptr, &context, kind, value)));
        checked(X509_add_ext(certificate, extension.get(), -1));
    }
    checked(X509_sign(certificate, signer.key.get(), EVP_sha256()));
    return created;
}

Identity makeAuthority(Time now) {
    return makeIdentity(
        "Orvel local service authority",
        now,
        authorityLifetime,
        nullptr,
        {{NID_basic_constraints, "critical,CA:TRUE,pathlen:0"},
         {NID_key_usage, "critical,keyCertSign"},
         {NID_name_constraints,
          "critical,permitted;DNS:localhost,permitted;IP:127.0.0.1/255.255.255.255"},
         {NID_subject_key_identifier, "hash"}});
}

Identity makeServer(const Identity& authority, Time now) {
    return makeIdentity(
        "localhost",
        now,
        serverLifetime,
        &authority,
        {{NID_basic_constraints, "critical,CA:FALSE"},
         {NID_key_usage, "critical,digitalSignature"},
         {NID_ext_key_usage, "serverAuth"},
         {NID_subject_alt_name, "DNS:localhost,IP:127.0.0.1"},
         {NID_subject_key_identifier, "hash"},
         {NID_authority_key_identifier, "keyid:always"}});
}

template <typename Write>
std::string pem(Write write) {
    const Bio bio(checked(BIO_new(BIO_s_mem())));
    checked(write(bio.get()));
    char* bytes = nullptr;
    const auto size = BIO_get_mem_data(bio.get(), &bytes);
    return {bytes, static_cast<std::size_t>(size)};
}

/// Null unless the file contains such an object.
template <typename Object, typename Read>
Object read(const std::filesystem::path& file, Read readObject) {
    // The default callback would ask for an encrypted key's passphrase at the terminal.
    const auto noPassphrase = [](char*, int, int, void*) {
        return -1;
    };
    const Bio bio(BIO_new_file(file.c_str(), "r"));
    return Object(bio ? readObject(bio.get(), nullptr, noPassphrase, nullptr) : nullptr);
}

struct Files {
    std::filesystem::path certificate;
    std::filesystem::path key;
};

void save(const Identity& identity, const Files& files) {
    EVP_PKEY* key = identity.key.get();
    replacePrivateFile(files.key, pem([key](BIO* bio) {
                           return PEM_write_bio_PrivateKey(
                               bio, key, nullptr, nullptr, 0, nullptr, nullptr);
                       }));
    X509* certificate = identity.certificate.get();
    replacePrivateFile(files.certificate, pem([certificate](BIO* bio) {
                           return PEM_write_bio_X509(bio, certificate);
                       }));
}

/// The identity in the files, if key and certificate match and are valid beyond `renewalMargin`.
std::optional<Identity> load(const Files& files, Time now) {
    Identity loaded{
        read<Certificate>(files.certificate, PEM_read_bio_X509),
        read<Key>(files.key, PEM_read_bio_PrivateKey)};
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
    serverCertificate_ = std::move(server->certificate);
    serverKey_ = std::move(server->key);
}

} // namespace orvel::service
