// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/network/Envelope.h"

#include "OrvelAgent/scan/IngestClient.h"

#include <gtest/gtest.h>

#include <string>

namespace orvel {

namespace {

std::optional<Envelope<IngestClient::Digest>> decoded(std::string_view text) {
    return decodeEnvelope<IngestClient::Digest>(text);
}

} // namespace

TEST(EnvelopeTest, ReadsItsFourMembers) {
    const auto envelope =
        decoded(R"({"ok":true,"data":{"hints":["a"]},"error":"e","code":"c","more":1})");
    ASSERT_TRUE(envelope);
    EXPECT_TRUE(envelope->ok);
    ASSERT_TRUE(envelope->data);
    EXPECT_EQ(envelope->data->hints, std::vector<std::string>{"a"});
    EXPECT_EQ(envelope->error, "e");
    EXPECT_EQ(envelope->code, "c");
}

TEST(EnvelopeTest, AbsentAndNullMembersAreTheSame) {
    for (const char* text :
         {R"({"ok":false})", R"({"ok":false,"data":null,"error":null,"code":null})"}) {
        const auto envelope = decoded(text);
        ASSERT_TRUE(envelope) << text;
        EXPECT_FALSE(envelope->ok);
        EXPECT_FALSE(envelope->data);
        EXPECT_FALSE(envelope->error);
        EXPECT_FALSE(envelope->code);
    }
}

TEST(EnvelopeTest, WithoutOKThereIsNoEnvelope) {
    EXPECT_FALSE(decoded(R"({"data":{"hints":[]}})"));
    EXPECT_FALSE(decoded(R"({"ok":"true"})"));
    EXPECT_FALSE(decoded(R"({"ok":1})"));
    EXPECT_FALSE(decoded(R"({"OK":true})"));
}

TEST(EnvelopeTest, AMemberOfTheWrongTypeIsRefused) {
    EXPECT_FALSE(decoded(R"({"ok":true,"data":{"hints":"a"}})"));
    EXPECT_FALSE(decoded(R"({"ok":true,"data":{}})"));
    EXPECT_FALSE(decoded(R"({"ok":true,"data":[]})"));
    EXPECT_FALSE(decoded(R"({"ok":false,"error":5})"));
    EXPECT_FALSE(decoded(R"({"ok":false,"code":{}})"));
}

TEST(EnvelopeTest, TextThatIsNotJSONIsRefused) {
    EXPECT_FALSE(decoded(""));
    EXPECT_FALSE(decoded("<html>502</html>"));
    EXPECT_FALSE(decoded(R"({"ok":true)"));
    EXPECT_FALSE(decoded(R"([{"ok":true}])"));
    EXPECT_FALSE(decoded("{\"ok\":true,\"error\":\"\xff\"}"));
}

TEST(EnvelopeTest, DeepNestingIsRefused) {
    EXPECT_FALSE(decoded(std::string(1'000'000, '[')));
    EXPECT_FALSE(
        decoded(R"({"ok":true,"x":)" + std::string(5000, '[') + std::string(5000, ']') + "}"));
}

} // namespace orvel
