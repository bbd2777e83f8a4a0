// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/update/UpdateVersion.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace orvel {

TEST(UpdateVersionTest, VersionsAreOrderedByTheirComponents) {
    // In ascending order.
    const std::vector<std::string> ascending = {
        "0",
        "0.0.1",
        "0.9",
        "0.9.10",
        "1.0-alpha",
        "1.0-beta",
        "1.0-beta2",
        "1.0-beta10",
        "1.0-rc",
        "1.0-rc1",
        "1.0",
        "1.0.1",
        "1.2b1",
        "1.2",
        "1.9",
        "1.10",
        "2",
        "2.0.0.1",
        "10",
        "2024.11.21",
        "99999999999999999999",
        "100000000000000000000",
        "100000000000000000000.1"};
    for (std::size_t low = 0; low < ascending.size(); ++low) {
        for (std::size_t high = low; high < ascending.size(); ++high) {
            const auto one = UpdateVersion::parse(ascending[low]);
            const auto other = UpdateVersion::parse(ascending[high]);
            ASSERT_TRUE(one && other) << ascending[low] << " " << ascending[high];
            EXPECT_EQ(*one < *other, low < high) << ascending[low] << " " << ascending[high];
            EXPECT_EQ(*other > *one, low < high) << ascending[low] << " " << ascending[high];
            EXPECT_EQ(*one == *other, low == high) << ascending[low] << " " << ascending[high];
        }
    }
}

TEST(UpdateVersionTest, DifferentTextsMayBeTheSameVersion) {
    const std::vector<std::pair<std::string, std::string>> equal = {
        {"1", "1.0.0"},
        {"1.02", "1.2"},
        {"0001", "1"},
        {"0", "000.0"},
        {"1.0-beta2", "1.0.beta.2"},
        {"1.0b2", "1.0+b_2"},
        {"1.0b", "1.0b0"}};
    for (const auto& [one, other] : equal) {
        EXPECT_EQ(UpdateVersion::parse(one), UpdateVersion::parse(other)) << one << " " << other;
    }
}

TEST(UpdateVersionTest, KeepsItsText) {
    EXPECT_EQ(UpdateVersion::parse("01.0-RC1")->text(), "01.0-RC1");
}

TEST(UpdateVersionTest, RejectsTextThatIsNotAVersion) {
    const std::vector<std::string> refused = {
        "",
        " ",
        "v1.0",
        "beta",
        ".1",
        "-1",
        "1.",
        "1.0-",
        "1..0",
        "1.-0",
        " 1.0",
        "1.0 ",
        "1.0 beta",
        "1.0\n",
        std::string("1.0\0", 4),
        "1,0",
        "1/0",
        "1.0/../../x",
        "1.٣",
        "1.0ü",
        "1:1.0",
        "1~rc",
        std::string(65, '1')};
    for (const std::string& text : refused) {
        EXPECT_FALSE(UpdateVersion::parse(text)) << text;
    }
    EXPECT_TRUE(UpdateVersion::parse(std::string(64, '1')));
}

} // namespace orvel
