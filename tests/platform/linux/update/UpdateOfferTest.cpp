// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/update/UpdateOffer.h"

#include "platform/linux/update/UpdateError.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvel {

namespace {

UpdateVersion version(const std::string& text) {
    return *UpdateVersion::parse(text);
}

UpdateCriteria criteria() {
    return {version("1.5"), "x86_64", "application/vnd.appimage", version("2.36")};
}

AppcastItem item(const std::string& itsVersion) {
    AppcastItem made;
    made.version = itsVersion;
    made.enclosure.emplace();
    made.enclosure->url = "https://updates.test.example/" + itsVersion;
    made.enclosure->type = "application/vnd.appimage";
    made.enclosure->length = "1000";
    made.enclosure->signature = std::string(86, 'A') + "==";
    made.enclosure->sha256 = std::string(64, '0');
    made.enclosure->itemSignature = made.enclosure->signature;
    made.enclosure->system = "linux";
    made.enclosure->architecture = "x86_64";
    return made;
}

bool everythingIsSigned(const UpdateSignature&, std::string_view) {
    return true;
}

/// The version offered; empty when there is none.
std::string
offered(const std::vector<AppcastItem>& items, const ItemVerifier& isSigned = everythingIsSigned) {
    const auto offer = newestUpdate(items, criteria(), isSigned);
    return offer ? offer->update.version : "";
}

/// Why nothing is offered; empty when something is or nothing is newer.
std::string
refusal(const std::vector<AppcastItem>& items, const ItemVerifier& isSigned = everythingIsSigned) {
    try {
        static_cast<void>(newestUpdate(items, criteria(), isSigned));
        return "";
    } catch (const UpdateError& error) {
        return error.what();
    }
}

using Change = std::function<void(AppcastItem&)>;

} // namespace

TEST(UpdateOfferTest, OffersTheNewestInAnyOrder) {
    EXPECT_EQ(offered({item("1.9"), item("1.10"), item("1.2")}), "1.10");
    EXPECT_EQ(offered({item("1.10"), item("1.9")}), "1.10");
}

TEST(UpdateOfferTest, NothingOlderOrEqualIsOffered) {
    EXPECT_EQ(offered({}), "");
    EXPECT_EQ(offered({item("1.4"), item("1.5"), item("1.5.0"), item("1.5-rc9"), item("0.9")}), "");
}

TEST(UpdateOfferTest, ContainsTheItemsFields) {
    AppcastItem full = item("2.0");
    full.shortVersion = std::string(100, 'x');
    full.description = "Notes.";
    const auto offer = newestUpdate({full}, criteria(), everythingIsSigned);
    ASSERT_TRUE(offer);
    EXPECT_EQ(offer->update, (SoftwareUpdate{"2.0", std::string(64, 'x'), "Notes.", 1000}));
    EXPECT_EQ(offer->url, "https://updates.test.example/2.0");
    EXPECT_EQ(
        newestUpdate({item("2.0")}, criteria(), everythingIsSigned)->update.displayVersion, "2.0");
}

TEST(UpdateOfferTest, SkipsItemsForOtherCopies) {
    const std::vector<std::pair<const char*, Change>> others = {
        {"another system",
         [](AppcastItem& each) {
             each.enclosure->system = "macos";
         }},
        {"no system",
         [](AppcastItem& each) {
             each.enclosure->system = "";
         }},
        {"another architecture",
         [](AppcastItem& each) {
             each.enclosure->architecture = "aarch64";
         }},
        {"no architecture",
         [](AppcastItem& each) {
             each.enclosure->architecture = "";
         }},
        {"another kind",
         [](AppcastItem& each) {
             each.enclosure->type = "application/vnd.debian.binary-package";
         }},
        {"no kind",
         [](AppcastItem& each) {
             each.enclosure->type = "";
         }},
        {"a channel",
         [](AppcastItem& each) {
             each.channel = "beta";
         }},
        {"no enclosure",
         [](AppcastItem& each) {
             each.enclosure.reset();
         }},
        {"a newer system", [](AppcastItem& each) {
             each.minimumSystemVersion = "2.37";
         }}};
    for (const auto& [name, change] : others) {
        AppcastItem changed = item("3.0");
        change(changed);
        EXPECT_EQ(offered({changed, item("2.0")}), "2.0") << name;
        EXPECT_EQ(offered({changed}), "") << name;
    }
    AppcastItem justRight = item("3.0");
    justRight.minimumSystemVersion = "2.36";
    EXPECT_EQ(offered({justRight, item("2.0")}), "3.0");
}

TEST(UpdateOfferTest, RejectsItemsThatCannotBeDownloadedAndVerified) {
    struct Case {
        Change change;
        const char* sentence;
    };
    const std::vector<Case> cases = {
        {[](AppcastItem& each) { each.version = ""; }, "An update in the feed has no version."},
        {[](AppcastItem& each) { each.version = "2.0/../x"; },
         "An update in the feed has an unusable version."},
        {[](AppcastItem& each) { each.minimumSystemVersion = "any"; },
         "Update 2.0 in the feed has an unusable minimum system version."},
        {[](AppcastItem& each) { each.enclosure->signature = ""; },
         "Update 2.0 in the feed has no signature."},
        {[](AppcastItem& each) { each.enclosure->signature = "c2ln"; },
         "Update 2.0 in the feed has an unusable signature."},
        {[](AppcastItem& each) { each.enclosure->sha256 = ""; },
         "Update 2.0 in the feed has no hash."},
        {[](AppcastItem& each) { each.enclosure->sha256 = std::string(63, '0'); },
         "Update 2.0 in the feed has an unusable hash."},
        {[](AppcastItem& each) { each.enclosure->sha256 = std::string(64, 'A'); },
         "Update 2.0 in the feed has an unusable hash."},
        {[](AppcastItem& each) { each.enclosure->length = ""; },
         "Update 2.0 in the feed has no length."},
        {[](AppcastItem& each) { each.enclosure->length = "0"; },
         "Update 2.0 in the feed has an unusable length."},
        {[](AppcastItem& each) { each.enclosure->length = "-1"; },
         "Update 2.0 in the feed has an unusable length."},
        {[](AppcastItem& each) { each.enclosure->length = "1e3"; },
         "Update 2.0 in the feed has an unusable length."},
        {[](AppcastItem& each) { each.enclosure->length = "268435457"; },
         "Update 2.0 in the feed has an unusable length."},
        {[](AppcastItem& each) { each.enclosure->length = "18446744073709551617"; },
         "Update 2.0 in the feed has an unusable length."},
        {[](AppcastItem& each) { each.enclosure->url = ""; },
         "Update 2.0 in the feed has no address."},
        {[](AppcastItem& each) { each.enclosure->url = "http://h/x"; },
         "Update 2.0 would have to be loaded without encryption, which is refused."},
        {[](AppcastItem& each) { each.enclosure->url = "update.AppImage"; },
         "Update 2.0 would have to be loaded without encryption, which is refused."}};
    for (const Case& each : cases) {
        AppcastItem changed = item("2.0");
        each.change(changed);
        EXPECT_EQ(refusal({changed}), each.sentence);
    }
    AppcastItem largest = item("2.0");
    largest.enclosure->length = "268435456";
    EXPECT_EQ(offered({largest}), "2.0");
}

TEST(UpdateOfferTest, AnItemWithoutAValidSignatureIsNotOffered) {
    const auto isSigned = [](const UpdateSignature&, std::string_view bytes) {
        return bytes.find("version:3:2.0\n") != std::string_view::npos;
    };
    const char* sentence =
        "The entry of update 99999 in the feed has no valid signature. It is not offered.";
    EXPECT_EQ(refusal({item("99999")}, isSigned), sentence);
    EXPECT_EQ(offered({item("99999"), item("2.0")}, isSigned), "2.0");
    EXPECT_EQ(offered({item("2.0"), item("99999"), item("3.0")}, isSigned), "2.0");
    for (const char* signature : {"", "c2ln", "===="}) {
        AppcastItem changed = item("99999");
        changed.enclosure->itemSignature = signature;
        EXPECT_EQ(refusal({changed}), sentence) << signature;
        EXPECT_EQ(offered({changed, item("2.0")}), "2.0") << signature;
    }
}

TEST(UpdateOfferTest, TheSignatureCoversEveryFieldThatIsUsed) {
    const std::vector<std::pair<const char*, Change>> changes = {
        {"version",
         [](AppcastItem& each) {
             each.version = "2.1";
         }},
        {"shortVersion",
         [](AppcastItem& each) {
             each.shortVersion = "99999";
         }},
        {"description",
         [](AppcastItem& each) {
             each.description = "Open https://h";
         }},
        {"minimumSystemVersion",
         [](AppcastItem& each) {
             each.minimumSystemVersion = "2.35";
         }},
        {"url",
         [](AppcastItem& each) {
             each.enclosure->url = "https://elsewhere/2.0";
         }},
        {"length",
         [](AppcastItem& each) {
             each.enclosure->length = "999";
         }},
        {"sha256", [](AppcastItem& each) {
             each.enclosure->sha256[0] = '1';
         }}};
    std::string original;
    const auto remember = [&](const UpdateSignature&, std::string_view bytes) {
        original = bytes;
        return true;
    };
    ASSERT_EQ(offered({item("2.0")}, remember), "2.0");
    const auto isOriginal = [&](const UpdateSignature&, std::string_view bytes) {
        return bytes == original;
    };
    EXPECT_EQ(offered({item("2.0")}, isOriginal), "2.0");
    for (const auto& [name, change] : changes) {
        AppcastItem changed = item("2.0");
        change(changed);
        EXPECT_THAT(refusal({changed}, isOriginal), testing::HasSubstr("no valid signature"))
            << name;
    }
    // Fields that an item of this copy always has.
    for (const char* field :
         {"channel:0:\n",
          "system:5:linux\n",
          "architecture:6:x86_64\n",
          "type:24:application/vnd.appimage\n"}) {
        EXPECT_THAT(original, testing::HasSubstr(field));
    }
}

TEST(UpdateOfferTest, AnUnusableItemDoesNotHideAnother) {
    AppcastItem unusable = item("3.0");
    unusable.enclosure->length = "0";
    EXPECT_EQ(offered({unusable, item("2.0")}), "2.0");
    EXPECT_EQ(offered({item("two"), item("2.0")}), "2.0");
    EXPECT_EQ(refusal({unusable, item("two")}), "Update 3.0 in the feed has an unusable length.");
}

TEST(UpdateOfferTest, IgnoresMissingFieldsOfAnOldItem) {
    AppcastItem old = item("1.0");
    old.enclosure->signature = "";
    old.enclosure->itemSignature = "";
    EXPECT_EQ(refusal({old}), "");
    EXPECT_EQ(offered({old, item("2.0")}), "2.0");
}

TEST(UpdateOfferTest, ItsTextsAreCutAndCleaned) {
    AppcastItem hostile = item("2.0");
    hostile.shortVersion = "2\u009B\u202E" + std::string(100, 'x');
    hostile.description = "New:\n\u009B\u202E" + std::string(500'000, 'x');
    const auto offer = newestUpdate({hostile}, criteria(), everythingIsSigned);
    ASSERT_TRUE(offer);
    EXPECT_EQ(offer->update.displayVersion, "2\uFFFD\uFFFD" + std::string(61, 'x'));
    EXPECT_EQ(offer->update.releaseNotes, "New:\n\uFFFD\uFFFD" + std::string(9'993, 'x'));
}

} // namespace orvel
