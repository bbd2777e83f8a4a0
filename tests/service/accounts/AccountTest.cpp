// SPDX-License-Identifier: Apache-2.0
#include "service/accounts/Account.h"

#include "service/support/ServiceError.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <utility>
#include <vector>

namespace orvel::test {
namespace {

class AccountTest : public testing::Test {
protected:
    [[nodiscard]] std::vector<service::Account> read(const std::string& json) const {
        const auto file = directory_ / "accounts.json";
        std::ofstream(file, std::ios::binary) << json;
        return service::readAccounts(file);
    }

    TemporaryDirectory directory_;
};

TEST_F(AccountTest, ReadsAccounts) {
    const auto accounts =
        read(R"([{"uid":"a","email":"a@orvel.example","handle":"h"},{"uid":"b","email":null}])");

    ASSERT_EQ(2U, accounts.size());
    EXPECT_EQ("a", accounts[0].uid);
    EXPECT_EQ("a@orvel.example", accounts[0].email);
    EXPECT_EQ("h", accounts[0].handle);
    EXPECT_EQ("b", accounts[1].uid);
    EXPECT_EQ(std::nullopt, accounts[1].email);
    EXPECT_EQ(std::nullopt, accounts[1].handle);
}

TEST_F(AccountTest, AcceptsAnEmptyList) {
    EXPECT_TRUE(read("[]").empty());
}

TEST_F(AccountTest, ReportsWhyAFileCannotBeUsed) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"", "it is not a JSON array."},
        {"{}", "it is not a JSON array."},
        {R"([{"uid":"a"})", "it is not a JSON array."},
        {"[{\"uid\":\"\xff\"}]", "it is not a JSON array."},
        {R"(["a"])", "account 1 is not an object of texts with a \"uid\"."},
        {R"([{"uid":"a"},{}])", "account 2 is not an object of texts with a \"uid\"."},
        {R"([{"uid":"a","handle":1}])", "account 1 is not an object of texts with a \"uid\"."},
        {R"([{"uid":""}])", "every account needs a unique \"uid\"."},
        {R"([{"uid":"a"},{"uid":"a"}])", "every account needs a unique \"uid\"."},
    };
    for (const auto& [json, reason] : cases) {
        SCOPED_TRACE(json);
        try {
            static_cast<void>(read(json));
            ADD_FAILURE() << "It was read.";
        } catch (const service::ServiceError& error) {
            const std::string text = error.what();
            EXPECT_TRUE(text.ends_with(" cannot be used: " + reason)) << text;
        }
    }
}

} // namespace
} // namespace orvel::test
