// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <string_view>

struct evp_pkey_st;

namespace orvel::test {

/// A new Ed25519 key that signs updates. Key and signatures are Base64, hashes hexadecimal.
class UpdateSigner final {
public:
    UpdateSigner();

    [[nodiscard]] std::string publicKey() const;
    [[nodiscard]] std::string signature(std::string_view content) const;
    [[nodiscard]] static std::string sha256(std::string_view content);

private:
    std::shared_ptr<evp_pkey_st> key_;
};

} // namespace orvel::test
