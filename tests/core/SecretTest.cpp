// SPDX-License-Identifier: Apache-2.0
#include "core/Secret.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <string>
#include <utility>

namespace tavrin {

namespace {

const std::string longText = "a token that is too long to be kept inside the string object";
const std::string shortText = "short";

/// Storage for a secret that stays readable after the secret's destruction.
class Storage {
public:
    explicit Storage(std::string text) : secret_(new (bytes_) Secret(std::move(text))) {}

    Secret& secret() { return *secret_; }
    void destroy() { std::destroy_at(secret_); }
    [[nodiscard]] bool holds(const std::string& text) const {
        return std::string(bytes_, sizeof(bytes_)).find(text) != std::string::npos;
    }

private:
    alignas(Secret) char bytes_[sizeof(Secret)] = {}; // NOLINT(modernize-avoid-c-arrays)
    Secret* secret_;
};

} // namespace

TEST(SecretTest, WipingOverwritesAllBytesAndNoOthers) {
    std::string bytes = "abcdef";
    wipe(bytes.data() + 1, 4);
    EXPECT_EQ(bytes, std::string("a\0\0\0\0f", 6));
}

TEST(SecretTest, WipingOverwritesUnusedCapacity) {
    std::string text = longText;
    const char* bytes = text.data();
    text.resize(3);
    wipe(text);
    EXPECT_TRUE(text.empty());
    ASSERT_EQ(text.data(), bytes);
    // The text still owns this memory.
    EXPECT_EQ(std::string(bytes, longText.size()).find_first_not_of('\0'), std::string::npos);
}

TEST(SecretTest, IsOverwrittenWhenDestroyed) {
    Storage storage(shortText);
    ASSERT_TRUE(storage.holds(shortText));
    storage.destroy();
    EXPECT_FALSE(storage.holds(shortText));
}

TEST(SecretTest, IsOverwrittenWhenMovedFrom) {
    for (const std::string& text : {shortText, longText}) {
        Storage storage(text);
        const Secret other = std::move(storage.secret());
        EXPECT_EQ(other.text(), text);
        EXPECT_TRUE(storage.secret().isEmpty());
        EXPECT_FALSE(storage.holds(shortText));
        storage.destroy();
    }
}

TEST(SecretTest, IsOverwrittenWhenReplaced) {
    Storage storage(shortText);
    storage.secret() = Secret("x");
    EXPECT_EQ(storage.secret().text(), "x");
    EXPECT_FALSE(storage.holds("ort"));
    const Secret copy("y");
    storage.secret() = copy;
    EXPECT_EQ(storage.secret(), copy);
    storage.destroy();
}

TEST(SecretTest, OverwritesItsSourceText) {
    std::string text = shortText;
    const Secret secret(std::move(text));
    EXPECT_EQ(secret.text(), shortText);
    EXPECT_TRUE(text.empty()); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(std::string(text.data(), shortText.size()).find("hort"), std::string::npos);
}

} // namespace tavrin
