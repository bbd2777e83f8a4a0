// SPDX-License-Identifier: Apache-2.0
#include "service/support/Cryptography.h"

#include "service/support/ServiceError.h"

#include <openssl/crypto.h>
#include <openssl/rand.h>
#include <openssl/sha.h>

#include <array>
#include <cstdint>

namespace orvel::service {

namespace {

constexpr std::size_t size = 32;
using Bytes = std::array<unsigned char, size>;

std::string base64URL(const Bytes& bytes) {
    constexpr std::string_view alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    std::string text;
    std::uint32_t bits = 0;
    int count = 0;
    for (const auto byte : bytes) {
        bits = bits << 8U | byte;
        for (count += 8; count >= 6; count -= 6) {
            text += alphabet[bits >> static_cast<unsigned>(count - 6) & 63U];
        }
    }
    // The remaining bits of the last byte, padded with zeros.
    return text += alphabet[bits << static_cast<unsigned>(6 - count) & 63U];
}

} // namespace

std::string sha256(std::string_view text) {
    Bytes hash{};
    SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), hash.data());
    return base64URL(hash);
}

std::string randomToken(std::string_view prefix) {
    Bytes bytes{};
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) {
        throw ServiceError(ServiceError::Random{});
    }
    return std::string(prefix).append(base64URL(bytes));
}

bool equalsInConstantTime(std::string_view left, std::string_view right) {
    return left.size() == right.size() &&
           CRYPTO_memcmp(left.data(), right.data(), left.size()) == 0;
}

} // namespace orvel::service
