// SPDX-License-Identifier: Apache-2.0
#include "core/SecureRandom.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <set>
#include <span>
#include <vector>

namespace tavrin {

TEST(SecureRandomTest, FillsEveryByte) {
    constexpr int fillings = 200;
    for (const std::size_t size : {1U, 32U, 256U, 257U, 1000U}) {
        std::vector<bool> isFilled(size);
        for (int i = 0; i < fillings; ++i) {
            std::vector<std::byte> bytes(size);
            fillWithSecureRandom(bytes);
            for (std::size_t j = 0; j < size; ++j) {
                isFilled[j] = isFilled[j] || bytes[j] != std::byte{0};
            }
        }
        EXPECT_EQ(std::ranges::count(isFilled, false), 0) << size;
    }
}

TEST(SecureRandomTest, NeverRepeatsItself) {
    std::set<std::array<std::byte, 16>> seen;
    for (int i = 0; i < 1000; ++i) {
        std::array<std::byte, 16> bytes{};
        fillWithSecureRandom(bytes);
        seen.insert(bytes);
    }
    EXPECT_EQ(seen.size(), 1000U);
}

TEST(SecureRandomTest, WritesNothingOutsideTheSpan) {
    std::array<std::byte, 3> bytes{};
    fillWithSecureRandom(std::span(bytes).subspan(1, 0));
    EXPECT_EQ(bytes, (std::array<std::byte, 3>{}));
    fillWithSecureRandom(std::span(bytes).subspan(1, 1));
    EXPECT_EQ(bytes.front(), std::byte{0});
    EXPECT_EQ(bytes.back(), std::byte{0});
}

} // namespace tavrin
