// SPDX-License-Identifier: Apache-2.0
#include "tests/support/UpdateSigner.h"

#include <QByteArray>
#include <QCryptographicHash>

#include <openssl/evp.h>

#include <array>
#include <stdexcept>

namespace orvel::test {

namespace {

void check(bool isDone) {
    if (!isDone) {
        throw std::runtime_error("OpenSSL could not sign.");
    }
}

template <std::size_t size>
std::string base64(const std::array<unsigned char, size>& bytes) {
    return QByteArray(reinterpret_cast<const char*>(bytes.data()), qsizetype{size})
        .toBase64()
        .toStdString();
}

} // namespace

UpdateSigner::UpdateSigner() : key_(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"), EVP_PKEY_free) {
    check(key_ != nullptr);
}

std::string UpdateSigner::publicKey() const {
    std::array<unsigned char, 32> bytes{};
    std::size_t size = bytes.size();
    check(EVP_PKEY_get_raw_public_key(key_.get(), bytes.data(), &size) == 1);
    return base64(bytes);
}

std::string UpdateSigner::signature(std::string_view content) const {
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(
        EVP_MD_CTX_new(), EVP_MD_CTX_free);
    std::array<unsigned char, 64> bytes{};
    std::size_t size = bytes.size();
    check(EVP_DigestSignInit(context.get(), nullptr, nullptr, nullptr, key_.get()) == 1);
    check(
        EVP_DigestSign(
            context.get(),
            bytes.data(),
            &size,
            reinterpret_cast<const unsigned char*>(content.data()),
            content.size()) == 1);
    return base64(bytes);
}

std::string UpdateSigner::sha256(std::string_view content) {
    const QByteArray bytes(content.data(), static_cast<qsizetype>(content.size()));
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex().toStdString();
}

} // namespace orvel::test
