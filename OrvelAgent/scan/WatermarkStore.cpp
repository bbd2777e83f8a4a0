// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/scan/WatermarkStore.h"

#include "core/UserDefaultsKeys.h"

namespace orvel {

using namespace tavrin::UserDefaultsKeys;

std::int64_t WatermarkStore::watermark() const {
    return defaults_.integer(highKey).value_or(0);
}

void WatermarkStore::setWatermark(std::int64_t rowID) {
    defaults_.setInteger(highKey, rowID);
}

std::int64_t WatermarkStore::backfillCursor() const {
    return defaults_.integer(backfillKey).value_or(cursorAtStart);
}

void WatermarkStore::setBackfillCursor(std::int64_t rowID) {
    defaults_.setInteger(backfillKey, rowID);
}

bool WatermarkStore::isBackfillDone() const {
    return defaults_.boolean(backfillDoneKey).value_or(false);
}

void WatermarkStore::setBackfillDone(bool isDone) {
    defaults_.setBoolean(backfillDoneKey, isDone);
}

std::int64_t WatermarkStore::messagesLast24h() const {
    return defaults_.integer(last24hKey).value_or(0);
}

std::optional<tavrin::Date> WatermarkStore::messagesLast24hAt() const {
    return defaults_.date(last24hAtKey);
}

void WatermarkStore::setMessagesLast24h(std::int64_t count, tavrin::Date at) {
    defaults_.setInteger(last24hKey, count);
    defaults_.setDate(last24hAtKey, at);
}

void WatermarkStore::reset() {
    setWatermark(0);
    setBackfillCursor(cursorAtStart);
    setBackfillDone(false);
}

} // namespace orvel
