// SPDX-License-Identifier: Apache-2.0
//
// Contract tests for every bundle: the fake and this system's.
#include "platform/Bundle.h"

#include "tests/platform/RealBundle.h"
#include "tests/platform/WrittenPropertyList.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/fakes/FakeBundle.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>

namespace orvel::test {

namespace {

using Strings = std::map<std::string, std::string>;

struct RealFixture {
    TemporaryDirectory folder;

    std::unique_ptr<Bundle> bundle(const Strings& information, const Strings& resources) {
        writeFile(folder / "Info.plist", dictionary(information));
        for (const auto& [name, content] : resources) {
            writeFile(folder / name, content);
        }
        return makeRealBundle(folder.path());
    }
};

struct FakeFixture {
    std::unique_ptr<Bundle> bundle(const Strings& information, const Strings& resources) {
        auto bundle = std::make_unique<FakeBundle>();
        for (const auto& [key, value] : information) {
            bundle->setInfo(key, value);
        }
        for (const auto& [name, content] : resources) {
            bundle->setResource(name, content);
        }
        return bundle;
    }
};

template <typename Fixture>
class BundleTest : public testing::Test {
protected:
    std::unique_ptr<Bundle> bundle(const Strings& information, const Strings& resources = {}) {
        return fixture_.bundle(information, resources);
    }

private:
    Fixture fixture_;
};

using Fixtures = testing::Types<RealFixture, FakeFixture>;
TYPED_TEST_SUITE(BundleTest, Fixtures);

} // namespace

TYPED_TEST(BundleTest, GivesTheStringOfAKey) {
    const auto bundle = this->bundle({{"API_HOST", " example "}, {"EMPTY", ""}});
    EXPECT_EQ(bundle->infoString("API_HOST"), " example ");
    EXPECT_EQ(bundle->infoString("EMPTY"), "");
}

TYPED_TEST(BundleTest, GivesNothingForAMissingKey) {
    const auto bundle = this->bundle({{"API_HOST", "example"}});
    EXPECT_EQ(bundle->infoString("api_host"), std::nullopt);
    EXPECT_EQ(bundle->infoString(""), std::nullopt);
}

TYPED_TEST(BundleTest, IdentifierIsEmptyWithoutItsKey) {
    EXPECT_EQ(this->bundle({{"CFBundleName", "x"}})->identifier(), "");
    EXPECT_EQ(this->bundle({{"CFBundleIdentifier", "app.test"}})->identifier(), "app.test");
}

TYPED_TEST(BundleTest, GivesTheContentOfAResource) {
    const std::string content("line one\n\0line two", 18);
    const auto bundle = this->bundle({}, {{"CHANGELOG.md", content}, {"EMPTY.md", ""}});
    EXPECT_EQ(bundle->resource("CHANGELOG", "md"), content);
    EXPECT_EQ(bundle->resource("EMPTY", "md"), "");
}

TYPED_TEST(BundleTest, GivesNothingForAMissingResource) {
    EXPECT_EQ(this->bundle({})->resource("CHANGELOG", "md"), std::nullopt);
}

} // namespace orvel::test
