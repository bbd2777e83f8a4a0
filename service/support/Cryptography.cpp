// SPDX-License-Identifier: Apache-2.0
#include "service/support/Cryptography.h"

#include "service/support/ServiceError.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <openssl/sha.h>

#include <algorithm>
#include <array>

namespace orvel::service {

namespace {

constexpr std::size_t size = 32;
using Bytes = std::array<unsigned char, size>;

std::string base64URL(const Bytes& bytes) {
    // With padding and a terminating zero.
    std::array<unsigned char, (size + 2) / 3 * 4 + 1> text{};
    EVP_EncodeBlock(text.data(), bytes.data(), size);
    std::ranges::replace(text, '+', '-');
    std::ranges::replace(text, '/', '_');
    return {text.begin(), std::ranges::find(text, '=')};
}

} // namespace

std::string sha256(std::string_view text) {
    Bytes hash{};
    SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), hash.data());
    return base64URL(hash);
}

bool isSHA256(std::string_view text) {
    constexpr std::string_view alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    constexpr std::size_t hashSize = 43;
    return text.size() == hashSize && text.find_first_not_of(alphabet) == std::string_view::npos;
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
