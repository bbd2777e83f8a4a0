// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/Session.h"

#include <gtest/gtest.h>

#include <optional>

namespace orvel {

TEST(SessionTest, TheFirstNameThatIsNotEmptyNamesTheAccount) {
    EXPECT_EQ(accountOf("uid", "email", "handle"), "uid");
    EXPECT_EQ(accountOf("", "email", "handle"), "email");
    EXPECT_EQ(accountOf(std::nullopt, "", "handle"), "handle");
    EXPECT_EQ(accountOf("", std::nullopt, std::nullopt), "");
}

TEST(SessionTest, AProfileReplacesOnlyWhatItHas) {
    Session session{{}, "uid", "email", "handle"};
    session.merge({std::nullopt, "new email", std::nullopt});
    EXPECT_EQ(session.uid, "uid");
    EXPECT_EQ(session.email, "new email");
    EXPECT_EQ(session.handle, "handle");
    session.merge({"new uid", std::nullopt, "new handle"});
    EXPECT_EQ(session.uid, "new uid");
    EXPECT_EQ(session.email, "new email");
    EXPECT_EQ(session.handle, "new handle");
}

} // namespace orvel
