// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/scan/WatermarkStore.h"

#include "core/JSON.h"
#include "core/UserDefaultsKeys.h"

#include <boost/json/object.hpp>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <fmt/format.h>

#include <exception>
#include <sstream>
#include <stdexcept>

namespace orvel {

using namespace tavrin::UserDefaultsKeys;

std::int64_t WatermarkStore::watermark() const {
    return storedValue<std::int64_t>(defaults_, highKey).value_or(0);
}

void WatermarkStore::setWatermark(std::int64_t rowID) {
    defaults_.set(highKey, rowID);
}

std::int64_t WatermarkStore::backfillCursor() const {
    return storedValue<std::int64_t>(defaults_, backfillKey).value_or(cursorAtStart);
}

void WatermarkStore::setBackfillCursor(std::int64_t rowID) {
    defaults_.set(backfillKey, rowID);
}

bool WatermarkStore::isBackfillDone() const {
    return storedValue<bool>(defaults_, backfillDoneKey).value_or(false);
}

void WatermarkStore::setBackfillDone(bool isDone) {
    defaults_.set(backfillDoneKey, isDone);
}

std::int64_t WatermarkStore::messagesLast24h() const {
    return storedValue<std::int64_t>(defaults_, last24hKey).value_or(0);
}

std::optional<tavrin::Date> WatermarkStore::messagesLast24hAt() const {
    return storedValue<tavrin::Date>(defaults_, last24hAtKey);
}

void WatermarkStore::setMessagesLast24h(std::int64_t count, tavrin::Date at) {
    defaults_.set(last24hKey, count);
    defaults_.set(last24hAtKey, at);
}

std::unique_ptr<tavrin::Interface> WatermarkStore::lock() {
    auto lock = defaults_.tryLock();
    if (!lock) {
        throw std::runtime_error("Another scan is running.");
    }
    return lock;
}

std::optional<std::string> WatermarkStore::claim(const Owner& owner, std::int64_t highestRowID) {
    std::optional<std::string> reason;
    Owner now = owner;
    if (const std::optional<Owner> before = this->owner()) {
        if (now.account.empty()) {
            now.account = before->account;
        }
        if (!before->account.empty() && before->account != now.account) {
            reason = "the account is another one";
        } else if (before->service != now.service) {
            reason = "the service is another one";
        } else if (before->database != now.database) {
            reason = "the database is another one";
        }
    }
    if (!reason && highestRowID < watermark()) {
        reason = fmt::format(
            "the database was rebuilt: its highest row id is {}, but {} was reached",
            highestRowID,
            watermark());
    }
    if (reason) {
        reset();
    }
    const std::string json = boost::json::serialize(boost::json::object{
        {"account", now.account}, {"service", now.service}, {"database", now.database}});
    if (storedValue<std::string>(defaults_, ownerKey) != json) {
        defaults_.set(ownerKey, json);
    }
    return reason;
}

std::optional<WatermarkStore::Owner> WatermarkStore::owner() const {
    try {
        const boost::json::value json =
            boost::json::parse(storedValue<std::string>(defaults_, ownerKey).value_or(""));
        const boost::json::object& object = tavrin::asObject(json);
        return Owner{
            tavrin::stringAt(object, "account"),
            tavrin::stringAt(object, "service"),
            tavrin::stringAt(object, "database")};
    } catch (const std::exception&) {
        // Missing, or changed by hand.
        return std::nullopt;
    }
}

std::optional<std::string> WatermarkStore::copiesFolder() const {
    return storedValue<std::string>(defaults_, copiesFolderKey);
}

void WatermarkStore::setCopiesFolder(const std::string& folder) {
    defaults_.set(copiesFolderKey, folder);
}

void WatermarkStore::rememberBeforeContactsGap() {
    if (!storedValue<std::string>(defaults_, beforeContactsGapKey)) {
        defaults_.set(
            beforeContactsGapKey,
            fmt::format("{} {} {}", watermark(), backfillCursor(), isBackfillDone() ? 1 : 0));
    }
}

bool WatermarkStore::returnBeforeContactsGap() {
    const std::optional<std::string> stored =
        storedValue<std::string>(defaults_, beforeContactsGapKey);
    if (!stored) {
        return false;
    }
    std::int64_t rowID = 0;
    std::int64_t cursor = cursorAtStart;
    bool isDone = false;
    std::istringstream text(*stored);
    if (!(text >> rowID >> cursor >> isDone)) {
        // Changed by hand. Read everything again.
        reset();
        return true;
    }
    setWatermark(rowID);
    setBackfillCursor(cursor);
    setBackfillDone(isDone);
    defaults_.remove(beforeContactsGapKey);
    return true;
}

void WatermarkStore::reset() {
    setWatermark(0);
    setBackfillCursor(cursorAtStart);
    setBackfillDone(false);
    defaults_.remove(beforeContactsGapKey);
}

} // namespace orvel
