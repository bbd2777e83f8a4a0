// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/update/UpdateKey.h"

#include "core/Errors.h"
#include "platform/linux/support/OpenSSL.h"

#include <QByteArray>

#include <algorithm>
#include <cerrno>
#include <memory>

namespace orvel {

namespace {

template <std::size_t size>
std::optional<std::array<std::uint8_t, size>> decoded(std::string_view text) {
    const auto result = QByteArray::fromBase64Encoding(
        QByteArray(text.data(), static_cast<qsizetype>(text.size())),
        QByteArray::AbortOnBase64DecodingErrors);
    if (!result || result.decoded.size() != qsizetype{size}) {
        return std::nullopt;
    }
    std::array<std::uint8_t, size> bytes{};
    std::ranges::copy(result.decoded, bytes.begin());
    return bytes;
}

std::optional<std::uint8_t> hexadecimalDigit(char character) {
    constexpr std::string_view digits = "0123456789abcdef";
    const auto value = digits.find(character);
    return value == std::string_view::npos ? std::nullopt
                                           : std::optional(static_cast<std::uint8_t>(value));
}

/// Frees what OpenSSL keeps for this thread, such as its errors. OpenSSL would free it when the
/// thread ends, which may be after the library has ended: Qt does not wait until a thread of a pool
/// has ended completely.
class ThreadState final {
public:
    explicit ThreadState(const OpenSSL& openSSL) : openSSL_(openSSL) {}
    ThreadState(const ThreadState&) = delete;
    ThreadState& operator=(const ThreadState&) = delete;
    ~ThreadState() { openSSL_.openSSLThreadStop(); }

private:
    const OpenSSL& openSSL_;
};

} // namespace

std::optional<UpdateSignature> updateSignatureFromBase64(std::string_view text) {
    return decoded<std::tuple_size_v<UpdateSignature>>(text);
}

std::optional<UpdateHash> updateHashFromHex(std::string_view text) {
    UpdateHash hash{};
    if (text.size() != 2 * hash.size()) {
        return std::nullopt;
    }
    for (std::size_t index = 0; index < hash.size(); ++index) {
        const auto high = hexadecimalDigit(text[2 * index]);
        const auto low = hexadecimalDigit(text[2 * index + 1]);
        if (!high || !low) {
            return std::nullopt;
        }
        hash[index] = static_cast<std::uint8_t>(*high << 4U | *low);
    }
    return hash;
}

UpdateHash updateHash(std::span<const std::uint8_t> content) {
    const OpenSSL& openSSL = OpenSSL::get();
    const ThreadState state(openSSL);
    UpdateHash hash{};
    if (openSSL.evpQDigest(
            nullptr, "SHA256", nullptr, content.data(), content.size(), hash.data(), nullptr) !=
        1) {
        throw tavrin::PlatformError::fromErrno(ENOTSUP, "Could not compute a hash with OpenSSL");
    }
    return hash;
}

std::optional<UpdateKey> UpdateKey::fromBase64(std::string_view text) {
    const auto bytes = decoded<sizeof(bytes_)>(text);
    if (!bytes) {
        return std::nullopt;
    }
    UpdateKey key;
    key.bytes_ = *bytes;
    return key;
}

bool UpdateKey::verifies(
    const UpdateSignature& signature, std::span<const std::uint8_t> content) const {
    const OpenSSL& openSSL = OpenSSL::get();
    const ThreadState state(openSSL);
    const std::unique_ptr<EVP_PKEY, LazyRelease<&OpenSSL::evpPkeyFree>> key(
        openSSL.evpPkeyNewRawPublicKey(EVP_PKEY_ED25519, nullptr, bytes_.data(), bytes_.size()));
    const std::unique_ptr<EVP_MD_CTX, LazyRelease<&OpenSSL::evpMdCtxFree>> context(
        openSSL.evpMdCtxNew());
    return key && context &&
           openSSL.evpDigestVerifyInit(context.get(), nullptr, nullptr, nullptr, key.get()) == 1 &&
           openSSL.evpDigestVerify(
               context.get(), signature.data(), signature.size(), content.data(), content.size()) ==
               1;
}

} // namespace orvel
