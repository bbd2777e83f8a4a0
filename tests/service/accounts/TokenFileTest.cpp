// SPDX-License-Identifier: Apache-2.0
#include "service/accounts/TokenFile.h"

#include "service/support/ServiceError.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace orvel::test {
namespace {

namespace fs = std::filesystem;
using service::loadOrCreateToken;

class TokenFileTest : public testing::Test {
protected:
    TemporaryDirectory directory_;
    fs::path file_ = directory_ / "folder/token";
};

TEST_F(TokenFileTest, IsCreatedForThisUserOnly) {
    const auto token = loadOrCreateToken(file_);

    EXPECT_EQ(token.size(), 55U);
    std::string line;
    EXPECT_TRUE(std::getline(std::ifstream(file_), line));
    EXPECT_EQ(line, token);
    using fs::perms;
    EXPECT_EQ(fs::status(file_).permissions(), perms::owner_read | perms::owner_write);
    EXPECT_EQ(fs::status(file_.parent_path()).permissions(), perms::owner_all);
}

TEST_F(TokenFileTest, KeepsItsToken) {
    const auto token = loadOrCreateToken(file_);
    EXPECT_EQ(loadOrCreateToken(file_), token);
    EXPECT_NE(loadOrCreateToken(directory_ / "other"), token);
}

TEST_F(TokenFileTest, ReplacesATokenThatOthersCouldRead) {
    const auto token = loadOrCreateToken(file_);
    chmod(file_.c_str(), 0640);

    const auto next = loadOrCreateToken(file_);

    EXPECT_NE(next, token);
    EXPECT_EQ(loadOrCreateToken(file_), next);
}

TEST_F(TokenFileTest, ReplacesALinkAndDamagedContent) {
    const auto token = loadOrCreateToken(file_);
    fs::rename(file_, directory_ / "moved");
    fs::create_symlink(directory_ / "moved", file_);
    const auto next = loadOrCreateToken(file_);
    EXPECT_NE(next, token);
    EXPECT_EQ(loadOrCreateToken(directory_ / "moved"), token);

    for (const auto& damaged : {std::string(), std::string("orvel-token-"), next + next}) {
        std::ofstream(file_) << damaged;
        EXPECT_NE(loadOrCreateToken(file_), damaged);
    }
}

} // namespace
} // namespace orvel::test
