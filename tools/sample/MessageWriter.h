// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/sample/RowInserter.h"
#include "tools/sample/SampleMessages.h"

#include <cstdint>
#include <functional>

namespace orvel {

/// Called now and then with the number of messages written.
using WriteProgress = std::function<void(std::int64_t written)>;

/// Writes consecutive messages of a sample, in transactions of a bounded size.
class MessageWriter final {
public:
    /// The sent times, evenly spaced with some jitter. The last message gets exactly the newest
    /// time. Nanoseconds on the time scale of the Messages database.
    struct Timeline {
        std::int64_t oldest;
        std::int64_t newest;
        std::int64_t messageCount;
    };

    /// The connection, the messages and the callback must outlive it.
    MessageWriter(
        SQLite::Database& connection,
        const SampleMessages& messages,
        const Timeline& timeline,
        std::int64_t firstRowID,
        const WriteProgress& onProgress);

    void write(std::int64_t count);

    [[nodiscard]] std::int64_t lastRowID() const { return nextRowID_ - 1; }

private:
    void insert(const SampleMessages::Message& message);
    [[nodiscard]] std::int64_t timeOf(const SampleMessages::Message& message) const;

    SQLite::Database& connection_;
    const SampleMessages& messages_;
    Timeline timeline_;
    std::int64_t nextRowID_;
    const WriteProgress& onProgress_;
    RowInserter messageRows_;
    RowInserter membershipRows_;
    std::int64_t written_ = 0;
};

} // namespace orvel
