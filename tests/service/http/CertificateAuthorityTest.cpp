// SPDX-License-Identifier: Apache-2.0
#include "service/http/CertificateAuthority.h"

#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <string>

namespace orvel::test {
namespace {

using service::CertificateAuthority;
using std::chrono::days;

using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;
using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

std::string contentOf(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

template <typename Reader>
auto parsed(const std::string& pem, Reader reader) {
    const std::unique_ptr<BIO, decltype(&BIO_free_all)> bio(
        BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())), BIO_free_all);
    return reader(bio.get(), nullptr, nullptr, nullptr);
}

Certificate certificate(const std::string& pem) {
    return {parsed(pem, PEM_read_bio_X509), X509_free};
}

bool haveEqualCertificates(const CertificateAuthority& left, const CertificateAuthority& right) {
    return X509_cmp(left.serverCertificate(), right.serverCertificate()) == 0;
}

Key key(const std::string& pem) {
    return {parsed(pem, PEM_read_bio_PrivateKey), EVP_PKEY_free};
}

/// OpenSSL's result of verifying the certificate for a server at `host`.
int verdict(X509* authority, X509* server, const char* host) {
    const std::unique_ptr<X509_STORE, decltype(&X509_STORE_free)> store(
        X509_STORE_new(), X509_STORE_free);
    X509_STORE_add_cert(store.get(), authority);
    const std::unique_ptr<X509_STORE_CTX, decltype(&X509_STORE_CTX_free)> context(
        X509_STORE_CTX_new(), X509_STORE_CTX_free);
    X509_STORE_CTX_init(context.get(), store.get(), server, nullptr);
    X509_STORE_CTX_set_purpose(context.get(), X509_PURPOSE_SSL_SERVER);
    auto* parameters = X509_STORE_CTX_get0_param(context.get());
    if (X509_VERIFY_PARAM_set1_ip_asc(parameters, host) != 1) {
        X509_VERIFY_PARAM_set1_host(parameters, host, 0);
    }
    X509_verify_cert(context.get());
    return X509_STORE_CTX_get_error(context.get());
}

class CertificateAuthorityTest : public testing::Test {
protected:
    [[nodiscard]] CertificateAuthority authority() const {
        return {directory_ / "certificates", now_};
    }

    [[nodiscard]] std::filesystem::path file(std::string_view name) const {
        return directory_ / "certificates" / name;
    }

    TemporaryDirectory directory_;
    std::chrono::system_clock::time_point now_ = std::chrono::system_clock::now();
};

TEST_F(CertificateAuthorityTest, VouchesForTheLoopbackNamesOnly) {
    const auto issuer = authority();
    const auto root = certificate(contentOf(issuer.certificateFile()));
    auto* server = issuer.serverCertificate();

    EXPECT_EQ(X509_V_OK, verdict(root.get(), server, "127.0.0.1"));
    EXPECT_EQ(X509_V_OK, verdict(root.get(), server, "localhost"));
    EXPECT_EQ(X509_V_ERR_HOSTNAME_MISMATCH, verdict(root.get(), server, "example.org"));
    EXPECT_EQ(X509_V_ERR_IP_ADDRESS_MISMATCH, verdict(root.get(), server, "127.0.0.2"));
}

TEST_F(CertificateAuthorityTest, CannotSignForOtherNamesEvenWithItsKey) {
    const auto issuer = authority();
    const auto root = certificate(contentOf(issuer.certificateFile()));
    const auto stolen = key(contentOf(file("authority-key.pem")));
    const Certificate forged(X509_dup(issuer.serverCertificate()), X509_free);
    auto* names = GENERAL_NAMES_new();
    auto* name = GENERAL_NAME_new();
    auto* host = ASN1_IA5STRING_new();
    ASN1_STRING_set(host, "example.org", -1);
    GENERAL_NAME_set0_value(name, GEN_DNS, host);
    sk_GENERAL_NAME_push(names, name);
    ASSERT_EQ(
        1, X509_add1_ext_i2d(forged.get(), NID_subject_alt_name, names, 0, X509V3_ADD_REPLACE));
    GENERAL_NAMES_free(names);
    ASSERT_NE(0, X509_sign(forged.get(), stolen.get(), EVP_sha256()));
    const auto reread = [&forged] {
        unsigned char* bytes = nullptr;
        const int size = i2d_X509(forged.get(), &bytes);
        const unsigned char* position = bytes;
        Certificate result(d2i_X509(nullptr, &position, size), X509_free);
        OPENSSL_free(bytes);
        return result;
    }();

    EXPECT_EQ(X509_V_ERR_PERMITTED_VIOLATION, verdict(root.get(), reread.get(), "example.org"));
}

TEST_F(CertificateAuthorityTest, IssuesForLessThan398Days) {
    const auto issuer = authority();
    int dayCount = 0;
    int secondCount = 0;
    ASSERT_EQ(
        1,
        ASN1_TIME_diff(
            &dayCount,
            &secondCount,
            X509_get0_notBefore(issuer.serverCertificate()),
            X509_get0_notAfter(issuer.serverCertificate())));
    EXPECT_LT(dayCount, 398);
}

TEST_F(CertificateAuthorityTest, HidesItsKeysFromOtherUsers) {
    static_cast<void>(authority());
    using std::filesystem::perms;
    const auto mode = [this](std::string_view name) {
        return std::filesystem::status(file(name)).permissions();
    };
    EXPECT_EQ(perms::owner_all, mode(""));
    EXPECT_EQ(perms::owner_read | perms::owner_write, mode("authority-key.pem"));
    EXPECT_EQ(perms::owner_read | perms::owner_write, mode("server-key.pem"));

    std::filesystem::permissions(
        file("server-key.pem"), perms::others_read, std::filesystem::perm_options::add);
    static_cast<void>(authority());
    EXPECT_EQ(perms::owner_read | perms::owner_write, mode("server-key.pem"));
}

TEST_F(CertificateAuthorityTest, ReusesItsFiles) {
    const auto first = authority();
    const auto root = contentOf(first.certificateFile());

    const auto second = authority();

    EXPECT_EQ(root, contentOf(second.certificateFile()));
    EXPECT_TRUE(haveEqualCertificates(first, second));
    EXPECT_EQ(1, EVP_PKEY_eq(first.serverKey(), second.serverKey()));
}

TEST_F(CertificateAuthorityTest, RenewsTheServerCertificateBeforeItExpires) {
    const auto first = authority();
    const auto root = contentOf(first.certificateFile());
    now_ += days(334);
    EXPECT_TRUE(haveEqualCertificates(first, authority()));
    now_ += days(2);

    const auto second = authority();

    EXPECT_FALSE(haveEqualCertificates(first, second));
    EXPECT_EQ(root, contentOf(second.certificateFile()));
}

TEST_F(CertificateAuthorityTest, RenewsEverythingBeforeItExpires) {
    const auto first = authority();
    const auto root = contentOf(first.certificateFile());
    now_ += days(701);

    const auto second = authority();

    EXPECT_NE(root, contentOf(second.certificateFile()));
    EXPECT_FALSE(haveEqualCertificates(first, second));
}

TEST_F(CertificateAuthorityTest, ReplacesMissingDamagedAndMismatchedFiles) {
    for (const std::string name :
         {"authority.pem", "authority-key.pem", "server.pem", "server-key.pem"}) {
        for (const std::string damage : {"missing", "empty", "garbled", "foreign"}) {
            SCOPED_TRACE(name + " " + damage);
            static_cast<void>(authority());
            if (damage == "missing") {
                std::filesystem::remove(file(name));
            } else if (damage == "empty") {
                std::ofstream(file(name)).close();
            } else if (damage == "garbled") {
                auto content = contentOf(file(name));
                content[content.size() / 2] ^= 1;
                std::ofstream(file(name)) << content;
            } else {
                static_cast<void>(CertificateAuthority(directory_ / "other", now_));
                std::filesystem::copy_file(
                    directory_ / "other" / name,
                    file(name),
                    std::filesystem::copy_options::overwrite_existing);
            }

            const auto issuer = authority();

            const auto root = certificate(contentOf(issuer.certificateFile()));
            auto* server = issuer.serverCertificate();
            EXPECT_EQ(X509_V_OK, verdict(root.get(), server, "127.0.0.1"));
            EXPECT_EQ(1, X509_check_private_key(server, issuer.serverKey()));
        }
    }
}

} // namespace
} // namespace orvel::test
