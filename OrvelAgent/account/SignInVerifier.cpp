// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/SignInVerifier.h"

#include "core/Secret.h"
#include "core/SecureRandom.h"

#include <QByteArray>
#include <QCryptographicHash>

#include <array>

namespace orvel {

namespace {

/// Base64url without padding. Overwrites the bytes.
std::string base64URL(QByteArray bytes) {
    QByteArray encoded =
        bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals);
    std::string text(encoded.constData(), static_cast<std::size_t>(encoded.size()));
    tavrin::wipe(encoded.data(), static_cast<std::size_t>(encoded.size()));
    tavrin::wipe(bytes.data(), static_cast<std::size_t>(bytes.size()));
    return text;
}

} // namespace

std::string SignInVerifier::makeVerifier() {
    std::array<std::byte, randomBytes> bytes{};
    tavrin::fillWithSecureRandom(bytes);
    std::string verifier =
        base64URL(QByteArray(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
    tavrin::wipe(bytes.data(), bytes.size());
    return verifier;
}

std::string SignInVerifier::challenge(const std::string& verifier) {
    const QByteArrayView bytes(verifier.data(), static_cast<qsizetype>(verifier.size()));
    return base64URL(QCryptographicHash::hash(bytes, QCryptographicHash::Sha256));
}

} // namespace orvel
