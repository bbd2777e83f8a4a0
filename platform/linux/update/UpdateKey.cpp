// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/update/UpdateKey.h"

#include "platform/linux/support/OpenSSL.h"

#include <QByteArray>

#include <algorithm>
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

} // namespace

std::optional<UpdateSignature> updateSignatureFromBase64(std::string_view text) {
    return decoded<std::tuple_size_v<UpdateSignature>>(text);
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
    const std::unique_ptr<EVP_PKEY, LazyRelease<&OpenSSL::evpPkeyFree>> key(
        openSSL.evpPkeyNewRawPublicKey(EVP_PKEY_ED25519, nullptr, bytes_.data(), bytes_.size()));
    const std::unique_ptr<EVP_MD_CTX, LazyRelease<&OpenSSL::evpMdCtxFree>> context(
        openSSL.evpMdCtxNew());
    const bool isValid =
        key && context &&
        openSSL.evpDigestVerifyInit(context.get(), nullptr, nullptr, nullptr, key.get()) == 1 &&
        openSSL.evpDigestVerify(
            context.get(), signature.data(), signature.size(), content.data(), content.size()) == 1;
    openSSL.errClearError();
    return isValid;
}

} // namespace orvel
