// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/update/UpdateKey.h"

#include "tests/support/UpdateSigner.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace orvel {

namespace {

std::span<const std::uint8_t> bytes(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

} // namespace

TEST(UpdateKeyTest, VerifiesTheTestVectorOfTheStandard) {
    // RFC 8032, 7.1, test 2: the message is the byte 0x72.
    const auto key = UpdateKey::fromBase64("PUAXw+hDiVqStwqnTRt+vJyYLM8uxJaMwM1V8Sr0Zgw=");
    const auto signature = updateSignatureFromBase64(
        "kqAJqfDUyrhyDoILX2QlQKKye1QWUD+Ps3YiI+vbadoIWsHkPhWZbkWPNhPQ8R2MOHsurrQwKu6wDSkWErsMAA==");
    ASSERT_TRUE(key);
    ASSERT_TRUE(signature);
    EXPECT_TRUE(key->verifies(*signature, bytes("\x72")));
}

TEST(UpdateKeyTest, VerifiesWhatItsOwnerSigned) {
    const test::UpdateSigner signer;
    const std::string content(100'000, 'x');
    const auto key = UpdateKey::fromBase64(signer.publicKey());
    const auto signature = updateSignatureFromBase64(signer.signature(content));
    ASSERT_TRUE(key && signature);
    EXPECT_TRUE(key->verifies(*signature, bytes(content)));
}

TEST(UpdateKeyTest, RefusesAnyChange) {
    const test::UpdateSigner signer;
    const std::string content = "content";
    const auto key = UpdateKey::fromBase64(signer.publicKey());
    const auto signature = updateSignatureFromBase64(signer.signature(content));
    ASSERT_TRUE(key && signature);
    for (std::size_t index = 0; index < content.size(); ++index) {
        std::string changed = content;
        changed[index] = static_cast<char>(changed[index] ^ 1);
        EXPECT_FALSE(key->verifies(*signature, bytes(changed))) << index;
    }
    for (std::size_t index = 0; index < signature->size(); ++index) {
        UpdateSignature changed = *signature;
        changed[index] ^= 1U;
        EXPECT_FALSE(key->verifies(changed, bytes(content))) << index;
    }
    EXPECT_FALSE(key->verifies(*signature, bytes("conten")));
    EXPECT_FALSE(key->verifies(*signature, bytes("content ")));
    EXPECT_FALSE(key->verifies(*signature, {}));
    EXPECT_FALSE(key->verifies({}, bytes(content)));
}

TEST(UpdateKeyTest, RefusesAnotherKeysSignature) {
    const auto key = UpdateKey::fromBase64(test::UpdateSigner().publicKey());
    const auto signature = updateSignatureFromBase64(test::UpdateSigner().signature("content"));
    ASSERT_TRUE(key && signature);
    EXPECT_FALSE(key->verifies(*signature, bytes("content")));
}

TEST(UpdateKeyTest, AcceptsExactlyTheBase64OfAKeyOrASignature) {
    const std::string key = test::UpdateSigner().publicKey();
    const std::string signature = test::UpdateSigner().signature("content");
    for (const std::string& text :
         {std::string(),
          std::string("key"),
          key.substr(1),
          key.substr(4),
          key + "AAAA",
          " " + key,
          key + "\n",
          "!" + key.substr(1),
          signature}) {
        EXPECT_FALSE(UpdateKey::fromBase64(text)) << text;
    }
    for (const std::string& text :
         {std::string(),
          key,
          signature.substr(4),
          signature + "AAAA",
          signature + " ",
          "-" + key}) {
        EXPECT_FALSE(updateSignatureFromBase64(text)) << text;
    }
}

TEST(UpdateKeyTest, ComputesTheHashOfTheStandard) {
    // FIPS 180-4: the hash of "abc".
    const auto hash =
        updateHashFromHex("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    ASSERT_TRUE(hash);
    EXPECT_EQ(updateHash(bytes("abc")), *hash);
    EXPECT_NE(updateHash(bytes("abd")), *hash);
    EXPECT_NE(updateHash({}), *hash);
}

TEST(UpdateKeyTest, AcceptsExactlyTheDigitsOfAHash) {
    const std::string hash = test::UpdateSigner::sha256("content");
    EXPECT_EQ(updateHashFromHex(hash), updateHash(bytes("content")));
    for (const std::string& text :
         {std::string(),
          hash.substr(1),
          hash.substr(2),
          hash + "0",
          hash + "00",
          hash + "\n",
          " " + hash.substr(1),
          "0x" + hash.substr(2),
          "g" + hash.substr(1),
          "A" + hash.substr(1)}) {
        EXPECT_FALSE(updateHashFromHex(text)) << text;
    }
}

} // namespace orvel
