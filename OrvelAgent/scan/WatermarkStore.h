// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"
#include "core/UserDefaults.h"

#include <cstdint>
#include <limits>
#include <optional>

namespace orvel {

/// Where collection stands, kept in the user defaults across launches. Its only writer is the
/// collector service.
///
/// Borrows the defaults. Reads never fail and may be made on any thread; a write returns when the
/// value is on disk and throws `tavrin::PlatformError` when it is not.
class WatermarkStore final {
public:
    /// The cursor of a walk that has not begun: the newest message is below it.
    static constexpr std::int64_t cursorAtStart = std::numeric_limits<std::int64_t>::max();

    explicit WatermarkStore(tavrin::UserDefaults& defaults) : defaults_(defaults) {}

    /// Messages with a larger row id are still to be sent by the forward pass.
    [[nodiscard]] std::int64_t watermark() const;
    void setWatermark(std::int64_t rowID);

    /// The next backfill batch reads row ids below this one.
    [[nodiscard]] std::int64_t backfillCursor() const;
    void setBackfillCursor(std::int64_t rowID);

    /// The walk through older history has reached the oldest message.
    [[nodiscard]] bool isBackfillDone() const;
    void setBackfillDone(bool isDone);

    [[nodiscard]] std::int64_t messagesLast24h() const;
    /// When that count was taken.
    [[nodiscard]] std::optional<tavrin::Date> messagesLast24hAt() const;
    void setMessagesLast24h(std::int64_t count, tavrin::Date at);

    /// Forgets all progress; the count of the last 24 hours stays.
    void reset();

private:
    tavrin::UserDefaults& defaults_;
};

} // namespace orvel
