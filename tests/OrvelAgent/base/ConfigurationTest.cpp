// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/base/Configuration.h"

#include "tests/support/fakes/FakeBundle.h"

#include <gtest/gtest.h>

namespace orvel {

using test::FakeBundle;

TEST(ConfigurationTest, AValueIsTrimmed) {
    FakeBundle bundle;
    bundle.setInfo("KEY", " \n example\t ");
    EXPECT_EQ(Configuration::infoValue(bundle, "KEY", "fallback"), "example");
}

TEST(ConfigurationTest, AMissingOrBlankValueGivesTheFallback) {
    FakeBundle bundle;
    bundle.setInfo("BLANK", "  ");
    EXPECT_EQ(Configuration::infoValue(bundle, "MISSING", "fallback"), "fallback");
    EXPECT_EQ(Configuration::infoValue(bundle, "BLANK", "fallback"), "fallback");
}

TEST(ConfigurationTest, AnUnexpandedBuildVariableGivesTheFallback) {
    FakeBundle bundle;
    bundle.setInfo("WHOLE", "$(API_HOST)");
    bundle.setInfo("PART", "api.$(DOMAIN)");
    EXPECT_EQ(Configuration::infoValue(bundle, "WHOLE", "fallback"), "fallback");
    EXPECT_EQ(Configuration::infoValue(bundle, "PART", "fallback"), "fallback");
}

TEST(ConfigurationTest, HostsBecomeHTTPSURLsWithoutATrailingSlash) {
    FakeBundle bundle;
    bundle.setInfo("API_HOST", "api.test.example");
    bundle.setInfo("WEB_HOST", "www.test.example");
    const Configuration configuration(bundle);
    EXPECT_EQ(configuration.apiBaseURL(), "https://api.test.example");
    EXPECT_EQ(configuration.webBaseURL(), "https://www.test.example");
}

TEST(ConfigurationTest, AnEmptyBundleHasADefaultNameAndVersion) {
    const FakeBundle bundle;
    const Configuration configuration(bundle);
    EXPECT_EQ(configuration.displayName(), "Orvel Agent");
    EXPECT_EQ(configuration.shortVersion(), "0.0.0");
    EXPECT_TRUE(configuration.apiBaseURL().starts_with("https://"));
    EXPECT_EQ(configuration.firebaseAPIKey(), "");
    EXPECT_TRUE(configuration.identityToolkitURL().ends_with("/v1/"));
    EXPECT_TRUE(configuration.secureTokenURL().ends_with("/v1/token"));
}

TEST(ConfigurationTest, TheIdentityProviderIsReadFromTheBundle) {
    FakeBundle bundle;
    bundle.setInfo("IDENTITY_TOOLKIT_URL", "https://identity.test.example/v1/");
    bundle.setInfo("SECURE_TOKEN_URL", "https://token.test.example/v1/token");
    bundle.setInfo("FIREBASE_API_KEY", "key");
    const Configuration configuration(bundle);
    EXPECT_EQ(configuration.identityToolkitURL(), "https://identity.test.example/v1/");
    EXPECT_EQ(configuration.secureTokenURL(), "https://token.test.example/v1/token");
    EXPECT_EQ(configuration.firebaseAPIKey(), "key");
    EXPECT_EQ(configuration.bundleIdentifier(), bundle.identifier());
}

} // namespace orvel
