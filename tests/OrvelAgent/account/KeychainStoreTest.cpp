// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/KeychainStore.h"

#include "tests/support/RunTask.h"
#include "tests/support/fakes/FakeKeychain.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace orvel {

namespace {

using test::runTask;

class KeychainStoreTest : public testing::Test {
protected:
    static Session session(std::string refreshToken) {
        return {tavrin::Secret(std::move(refreshToken)), {}, {}, {}};
    }

    KeychainStore::Reading load() { return runTask(store_->load({})); }

    static std::string tokenOf(const KeychainStore::Reading& reading) {
        return reading.session ? reading.session->refreshToken.text() : "none";
    }

    /// What another process stores.
    void storeElsewhere(const std::string& refreshToken) {
        keychain_.items[{"app.test.session", "session"}] =
            R"({"refreshToken":")" + refreshToken + R"("})";
    }

    test::FakeKeychain keychain_;
    std::shared_ptr<KeychainStore> store_ = std::make_shared<KeychainStore>(keychain_, "app.test");
};

} // namespace

TEST_F(KeychainStoreTest, ItsOwnChangesAreNotThoseOfAnotherProcess) {
    storeElsewhere("stored");
    EXPECT_FALSE(load().isChangedElsewhere);
    store_->save(session("saved"));
    EXPECT_FALSE(load().isChangedElsewhere);
    store_->remove();
    EXPECT_FALSE(load().isChangedElsewhere);
}

TEST_F(KeychainStoreTest, AChangeOfAnotherProcessIsOneUntilItIsAccepted) {
    store_->save(session("saved"));
    for (const char* token : {"theirs", ""}) {
        storeElsewhere(token);
        const KeychainStore::Reading reading = load();
        EXPECT_TRUE(reading.isChangedElsewhere);
        EXPECT_EQ(tokenOf(reading), token);
        EXPECT_TRUE(load().isChangedElsewhere);
        store_->accept(reading);
        EXPECT_FALSE(load().isChangedElsewhere);
    }
}

TEST_F(KeychainStoreTest, AReadingFromBeforeAChangeTellsNothingAboutOtherProcesses) {
    storeElsewhere("stored");
    load();
    keychain_.lock();
    QCoro::Task<KeychainStore::Reading> early = store_->load({});
    store_->save(session("saved"));
    keychain_.unlock();
    EXPECT_FALSE(runTask(std::move(early)).isChangedElsewhere);
}

TEST_F(KeychainStoreTest, TheLatestSessionIsReadAfterEveryChange) {
    storeElsewhere("stored");
    for (const bool isRemoval : {false, true}) {
        keychain_.lock();
        QCoro::Task<KeychainStore::Reading> latest = KeychainStore::loadLatest(store_, {});
        if (isRemoval) {
            store_->remove();
        } else {
            store_->save(session("saved"));
        }
        keychain_.unlock();
        EXPECT_EQ(tokenOf(runTask(std::move(latest))), isRemoval ? "none" : "saved");
    }
}

TEST_F(KeychainStoreTest, AnUnreadableKeychainIsNotTakenForAMissingSession) {
    storeElsewhere("stored");
    EXPECT_FALSE(load().isUnreadable);
    keychain_.readError.emplace("test", 1, "locked");
    const KeychainStore::Reading reading = load();
    EXPECT_TRUE(reading.isUnreadable);
    EXPECT_FALSE(reading.session);
    EXPECT_FALSE(reading.isChangedElsewhere);
}

TEST_F(KeychainStoreTest, AGarbledSessionCountsAsMissing) {
    for (const char* text : {"", "{", "[]", "{}", R"({"refreshToken":7})"}) {
        keychain_.items[{"app.test.session", "session"}] = text;
        const KeychainStore::Reading reading = load();
        EXPECT_FALSE(reading.session) << text;
        EXPECT_FALSE(reading.isUnreadable) << text;
    }
}

} // namespace orvel
