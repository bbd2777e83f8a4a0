// SPDX-License-Identifier: Apache-2.0
#include "core/SessionPolicy.h"

#include <gtest/gtest.h>

namespace tavrin {

TEST(SessionPolicyTest, A401WithTheExpiredCodeEndsTheSession) {
    EXPECT_TRUE(SessionPolicy::isSessionExpired(401, "session_expired"));
}

TEST(SessionPolicyTest, A401WithAnotherCodeOrNoneDoesNot) {
    EXPECT_FALSE(SessionPolicy::isSessionExpired(401, "Session_Expired"));
    EXPECT_FALSE(SessionPolicy::isSessionExpired(401, ""));
    EXPECT_FALSE(SessionPolicy::isSessionExpired(401, std::nullopt));
}

TEST(SessionPolicyTest, AnotherStatusWithTheExpiredCodeDoesNot) {
    EXPECT_FALSE(SessionPolicy::isSessionExpired(403, "session_expired"));
    EXPECT_FALSE(SessionPolicy::isSessionExpired(200, "session_expired"));
}

} // namespace tavrin
