// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealBundle.h"
#include "tests/service/SignInTest.h"

namespace orvel::test {
namespace {

using LocalServiceBundleTest = SignInTest;

TEST_F(LocalServiceBundleTest, PointsAnAgentAtTheService) {
    start();
    service_->writeBundle(directory_ / "bundle");

    const auto bundle = makeRealBundle(directory_ / "bundle");

    const auto host = "127.0.0.1:" + std::to_string(service_->port());
    EXPECT_EQ(host, bundle->infoString("API_HOST"));
    EXPECT_EQ(host, bundle->infoString("WEB_HOST"));
    EXPECT_EQ(service_->caFile().string(), bundle->infoString("TLS_EXTRA_CA"));
    EXPECT_EQ("Orvel Agent", bundle->infoString("CFBundleDisplayName"));
    EXPECT_FALSE(bundle->identifier().empty());
    EXPECT_NE("", bundle->infoString("CFBundleShortVersionString").value_or(""));
    EXPECT_NE("", bundle->infoString("FIREBASE_API_KEY").value_or(""));
}

TEST_F(LocalServiceBundleTest, NamesTheIdentityProvidersEndpoints) {
    start();
    service_->writeBundle(directory_ / "bundle");
    const auto bundle = makeRealBundle(directory_ / "bundle");
    auto client = clientWithoutToken();
    client.url = bundle->infoString("IDENTITY_TOOLKIT_URL").value_or("") +
                 "accounts:signInWithCustomToken?key=";
    EXPECT_EQ("MISSING_CUSTOM_TOKEN", identityMessage(client.post("", "{}")));

    client.url = bundle->infoString("SECURE_TOKEN_URL").value_or("") + "?key=";
    const auto reply =
        client.send("POST", "", {"Content-Type: application/x-www-form-urlencoded"}, "");
    EXPECT_EQ("INVALID_GRANT_TYPE", identityMessage(reply));
}

TEST_F(LocalServiceBundleTest, ReplacesTheBundleOfAnEarlierStart) {
    options_.apiKey = "first";
    start();
    service_->writeBundle(directory_ / "bundle");
    options_.apiKey = "second";
    start();
    service_->writeBundle(directory_ / "bundle");

    EXPECT_EQ("second", makeRealBundle(directory_ / "bundle")->infoString("FIREBASE_API_KEY"));
    // The temporary file is gone.
    using Iterator = std::filesystem::directory_iterator;
    EXPECT_EQ(1, std::distance(Iterator(directory_ / "bundle"), Iterator()));
}

TEST_F(LocalServiceBundleTest, EscapesSpecialCharacters) {
    options_.apiKey = "<key>&\"'";
    options_.certificates = directory_ / "odd & <folder> é";
    start();
    service_->writeBundle(directory_ / "bundle");

    const auto bundle = makeRealBundle(directory_ / "bundle");

    EXPECT_EQ("<key>&\"'", bundle->infoString("FIREBASE_API_KEY"));
    EXPECT_EQ(
        (directory_ / "odd & <folder> é/authority.pem").string(),
        bundle->infoString("TLS_EXTRA_CA"));
}

} // namespace
} // namespace orvel::test
