// SPDX-License-Identifier: Apache-2.0
#include "core/UpdateStatement.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <string_view>

namespace tavrin {

TEST(UpdateStatementTest, HasALineWithTheLengthOfEachField) {
    EXPECT_EQ(
        signedBytes(
            {.version = "1.2.0",
             .shortVersion = "Spring",
             .notes = "Faster.\nSmaller.",
             .channel = "",
             .minimumSystemVersion = "2.36",
             .system = "linux",
             .architecture = "x86_64",
             .type = "application/vnd.appimage",
             .url = "https://h/a",
             .length = "3",
             .sha256 = "00ff"}),
        "orvel-update-item-1\n"
        "version:5:1.2.0\n"
        "shortVersion:6:Spring\n"
        "notes:16:Faster.\nSmaller.\n"
        "channel:0:\n"
        "minimumSystemVersion:4:2.36\n"
        "system:5:linux\n"
        "architecture:6:x86_64\n"
        "type:24:application/vnd.appimage\n"
        "url:11:https://h/a\n"
        "length:1:3\n"
        "sha256:4:00ff\n");
}

TEST(UpdateStatementTest, EveryFieldChangesTheBytes) {
    std::set<std::string> all = {signedBytes({})};
    for (std::string_view UpdateStatement::*field :
         {&UpdateStatement::version,
          &UpdateStatement::shortVersion,
          &UpdateStatement::notes,
          &UpdateStatement::channel,
          &UpdateStatement::minimumSystemVersion,
          &UpdateStatement::system,
          &UpdateStatement::architecture,
          &UpdateStatement::type,
          &UpdateStatement::url,
          &UpdateStatement::length,
          &UpdateStatement::sha256}) {
        UpdateStatement changed;
        changed.*field = "x";
        EXPECT_TRUE(all.insert(signedBytes(changed)).second);
    }
}

TEST(UpdateStatementTest, AFieldCannotImitateTheNextOnes) {
    const UpdateStatement plain{.notes = "Notes", .channel = "beta"};
    const UpdateStatement imitation{.notes = "Notes\nchannel:4:beta"};
    EXPECT_NE(signedBytes(plain), signedBytes(imitation));
    EXPECT_NE(
        signedBytes({.version = "1", .shortVersion = "23"}),
        signedBytes({.version = "12", .shortVersion = "3"}));
}

} // namespace tavrin
