// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"
#include "core/UserDefaults.h"

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>

namespace orvel {

/// Stores the progress of the collection in the user defaults. Only the collector service writes
/// it.
///
/// Borrows the defaults. Reads never fail and are thread-safe. A write returns after the value is
/// on disk, and throws `tavrin::PlatformError` if it cannot be written.
class WatermarkStore final {
public:
    /// Greater than every row id: no history has been read yet.
    static constexpr std::int64_t cursorAtStart = std::numeric_limits<std::int64_t>::max();

    explicit WatermarkStore(tavrin::UserDefaults& defaults) : defaults_(defaults) {}

    /// The forward pass sends messages with a larger row id.
    [[nodiscard]] std::int64_t watermark() const;
    void setWatermark(std::int64_t rowID);

    /// The next history batch reads smaller row ids.
    [[nodiscard]] std::int64_t backfillCursor() const;
    void setBackfillCursor(std::int64_t rowID);

    /// Whether the oldest message has been read.
    [[nodiscard]] bool isBackfillDone() const;
    void setBackfillDone(bool isDone);

    [[nodiscard]] std::int64_t messagesLast24h() const;
    /// When that count was taken.
    [[nodiscard]] std::optional<tavrin::Date> messagesLast24hAt() const;
    void setMessagesLast24h(std::int64_t count, tavrin::Date at);

    /// Deletes all progress. Keeps the count of the last 24 hours.
    void reset();

    /// The progress is valid for this account, service and database only.
    struct Owner {
        /// Empty if unknown. Then it is not compared.
        std::string account;
        /// Scheme, host and port.
        std::string service;
        /// The path of the database.
        std::string database;
    };

    /// Call it before each scan. If the stored progress belongs to another owner, or the highest
    /// row id ever used in the database is below the watermark, deletes the progress and returns
    /// why. Progress without an owner belongs to this one.
    std::optional<std::string> claim(const Owner& owner, std::int64_t highestRowID);

    /// As `UserDefaults::tryLock`, but throws `std::runtime_error` while the lock is held. Held
    /// during a scan, because two scans at once would send everything twice, and during a reset,
    /// because the scan of another process would overwrite it.
    [[nodiscard]] std::unique_ptr<tavrin::Interface> lock();

    /// Where the last scan had its copy of the database.
    [[nodiscard]] std::optional<std::string> copiesFolder() const;
    void setCopiesFolder(const std::string& folder);

    /// Stores the current progress for `returnBeforeContactsGap`, unless that has been done
    /// already.
    void rememberBeforeContactsGap();
    /// Returns to the stored progress and forgets it. Returns whether there was any.
    bool returnBeforeContactsGap();

private:
    [[nodiscard]] std::optional<Owner> owner() const;

    tavrin::UserDefaults& defaults_;
};

} // namespace orvel
