// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/Session.h"

#include <boost/json.hpp>
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

TEST(SessionTest, TextsOfTheServiceAreOneLine) {
    const boost::json::value json = {
        {"refreshToken", "token"}, {"email", "a\r\nSigned out.\tb"}, {"handle", "c\nd"}};
    const auto session = boost::json::value_to<Session>(json);
    EXPECT_EQ(session.email, "a  Signed out. b");
    EXPECT_EQ(session.handle, "c d");
    const auto profile = boost::json::value_to<Profile>(json);
    EXPECT_EQ(profile.email, "a  Signed out. b");
    EXPECT_EQ(profile.handle, "c d");
}

} // namespace orvel
