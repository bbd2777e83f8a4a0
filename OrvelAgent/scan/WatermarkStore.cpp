// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/scan/WatermarkStore.h"

#include "core/UserDefaultsKeys.h"

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

void WatermarkStore::reset() {
    setWatermark(0);
    setBackfillCursor(cursorAtStart);
    setBackfillDone(false);
}

} // namespace orvel
