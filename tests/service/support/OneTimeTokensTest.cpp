// SPDX-License-Identifier: Apache-2.0
#include "service/support/OneTimeTokens.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

namespace orvel::service {
namespace {

using Tokens = OneTimeTokens<std::size_t>;

class OneTimeTokensTest : public testing::Test {
protected:
    std::chrono::system_clock::time_point now_;
    Tokens tokens_{"word-", std::chrono::seconds(60), [this] {
                       return now_;
                   }};
};

TEST_F(OneTimeTokensTest, IsTakenOnceAndStaysValidUntilThen) {
    const auto token = tokens_.mint(7);
    EXPECT_TRUE(tokens_.isValid(token));
    EXPECT_TRUE(tokens_.isValid(token));

    EXPECT_EQ(7U, tokens_.take(token));

    EXPECT_FALSE(tokens_.isValid(token));
    EXPECT_EQ(std::nullopt, tokens_.take(token));
}

TEST_F(OneTimeTokensTest, Expires) {
    const auto token = tokens_.mint(7);
    now_ += std::chrono::seconds(59);
    EXPECT_TRUE(tokens_.isValid(token));

    now_ += std::chrono::seconds(1);

    EXPECT_FALSE(tokens_.isValid(token));
    EXPECT_EQ(std::nullopt, tokens_.take(token));
}

TEST_F(OneTimeTokensTest, OneTooManyReplacesTheOneThatExpiresFirst) {
    const auto first = tokens_.mint(0);
    now_ += std::chrono::seconds(1);
    const auto second = tokens_.mint(1);
    for (std::size_t count = 2; count < Tokens::limit; ++count) {
        static_cast<void>(tokens_.mint(count));
    }
    EXPECT_TRUE(tokens_.isValid(first));

    const auto last = tokens_.mint(Tokens::limit);

    EXPECT_FALSE(tokens_.isValid(first));
    EXPECT_TRUE(tokens_.isValid(second));
    EXPECT_EQ(Tokens::limit, tokens_.take(last));
}

} // namespace
} // namespace orvel::service
