// SPDX-License-Identifier: Apache-2.0
#include "core/CollectionPreferences.h"

#include "core/Errors.h"
#include "core/JSON.h"
#include "tests/support/fakes/InMemoryUserDefaults.h"

#include <boost/json/value.hpp>
#include <boost/json/value_from.hpp>
#include <boost/json/value_to.hpp>
#include <gtest/gtest.h>

namespace tavrin {

namespace {

class CollectionPreferencesTest : public testing::Test {
protected:
    orvel::test::InMemoryUserDefaults defaults_;
    CollectionPreferences preferences_{defaults_};
};

} // namespace

TEST_F(CollectionPreferencesTest, AFreshInstallationReadsTheDefaults) {
    EXPECT_EQ(preferences_.mode(), CollectionMode::WithBodies);
    EXPECT_EQ(preferences_.scope(), ThreadScope::KnownContactsOnly);
    EXPECT_FALSE(defaults_.contains("collection.mode"));
    EXPECT_FALSE(defaults_.contains("collection.scope"));
}

TEST_F(CollectionPreferencesTest, StoresTheChoicesByName) {
    preferences_.setMode(CollectionMode::MetadataOnly);
    preferences_.setScope(ThreadScope::AllThreads);
    EXPECT_EQ(storedValue<std::string>(defaults_, "collection.mode"), "metadataOnly");
    EXPECT_EQ(storedValue<std::string>(defaults_, "collection.scope"), "allThreads");
    EXPECT_EQ(preferences_.mode(), CollectionMode::MetadataOnly);
    EXPECT_EQ(preferences_.scope(), ThreadScope::AllThreads);

    preferences_.setMode(CollectionMode::WithBodies);
    preferences_.setScope(ThreadScope::KnownContactsOnly);
    EXPECT_EQ(storedValue<std::string>(defaults_, "collection.mode"), "withBodies");
    EXPECT_EQ(storedValue<std::string>(defaults_, "collection.scope"), "knownContactsOnly");
    EXPECT_EQ(preferences_.mode(), CollectionMode::WithBodies);
    EXPECT_EQ(preferences_.scope(), ThreadScope::KnownContactsOnly);
}

TEST_F(CollectionPreferencesTest, UnknownTextFallsBackToTextAndToTheNarrowScope) {
    for (const char* garbage : {"", "METADATAONLY", "metadataonly", "metadataOnly ", "x"}) {
        defaults_.set("collection.mode", garbage);
        EXPECT_EQ(preferences_.mode(), CollectionMode::WithBodies) << garbage;
    }
    for (const char* garbage : {"", "ALLTHREADS", "allthreads", " allThreads", "x"}) {
        defaults_.set("collection.scope", garbage);
        EXPECT_EQ(preferences_.scope(), ThreadScope::KnownContactsOnly) << garbage;
    }
}

TEST_F(CollectionPreferencesTest, AValueThatIsNotTextReadsAsTheDefault) {
    defaults_.set("collection.mode", 0);
    defaults_.set("collection.scope", true);
    EXPECT_EQ(preferences_.mode(), CollectionMode::WithBodies);
    EXPECT_EQ(preferences_.scope(), ThreadScope::KnownContactsOnly);
}

TEST_F(CollectionPreferencesTest, EveryReadGoesToTheStore) {
    EXPECT_EQ(preferences_.mode(), CollectionMode::WithBodies);
    defaults_.set("collection.mode", "metadataOnly");
    EXPECT_EQ(preferences_.mode(), CollectionMode::MetadataOnly);
}

TEST_F(CollectionPreferencesTest, AChoiceThatCannotBeStoredIsReportedAndTheOldOneStays) {
    preferences_.setScope(ThreadScope::AllThreads);
    defaults_.setFailsWrites(true);
    EXPECT_THROW(preferences_.setScope(ThreadScope::KnownContactsOnly), PlatformError);
    EXPECT_EQ(preferences_.scope(), ThreadScope::AllThreads);
}

TEST_F(CollectionPreferencesTest, OnlyExactNamesAreRead) {
    EXPECT_EQ(collectionModeFromRawValue("metadataOnly"), CollectionMode::MetadataOnly);
    EXPECT_EQ(collectionModeFromRawValue("withBodies"), CollectionMode::WithBodies);
    EXPECT_EQ(collectionModeFromRawValue("WithBodies"), std::nullopt);
    EXPECT_EQ(collectionModeFromRawValue("allThreads"), std::nullopt);
    EXPECT_EQ(threadScopeFromRawValue("knownContactsOnly"), ThreadScope::KnownContactsOnly);
    EXPECT_EQ(threadScopeFromRawValue("allThreads"), ThreadScope::AllThreads);
    EXPECT_EQ(threadScopeFromRawValue("all"), std::nullopt);
    EXPECT_EQ(threadScopeFromRawValue(""), std::nullopt);
}

TEST(CollectionPreferencesJSONTest, BothChoicesAreTheirRawValues) {
    EXPECT_EQ(boost::json::value_from(CollectionMode::MetadataOnly), "metadataOnly");
    EXPECT_EQ(boost::json::value_from(ThreadScope::AllThreads), "allThreads");
    EXPECT_EQ(
        boost::json::value_to<CollectionMode>(boost::json::value("withBodies")),
        CollectionMode::WithBodies);
    EXPECT_EQ(
        boost::json::value_to<ThreadScope>(boost::json::value("knownContactsOnly")),
        ThreadScope::KnownContactsOnly);
}

TEST(CollectionPreferencesJSONTest, AnythingElseIsRefused) {
    for (const boost::json::value& json :
         {boost::json::value("MetadataOnly"), boost::json::value(0), boost::json::value(nullptr)}) {
        EXPECT_THROW(boost::json::value_to<CollectionMode>(json), JSONDecodingError);
        EXPECT_THROW(boost::json::value_to<ThreadScope>(json), JSONDecodingError);
    }
}

} // namespace tavrin
