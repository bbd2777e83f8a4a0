// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/sample/MessageTimeline.h"
#include "tools/sample/RowInserter.h"
#include "tools/sample/SampleMessages.h"

#include <cstdint>
#include <functional>

namespace orvel {

/// Called now and then with the number of messages written.
using WriteProgress = std::function<void(std::int64_t written)>;

/// Writes consecutive messages of a sample, in transactions of a bounded size. The arguments of the
/// constructor must outlive it.
class MessageWriter final {
public:
    MessageWriter(
        SQLite::Database& connection,
        const SampleMessages& messages,
        const MessageTimeline& timeline,
        std::int64_t firstRowID,
        const WriteProgress& onProgress);

    void write(std::int64_t count);

    [[nodiscard]] std::int64_t lastRowID() const { return nextRowID_ - 1; }

private:
    void insert(const SampleMessages::Message& message);

    SQLite::Database& connection_;
    const SampleMessages& messages_;
    const MessageTimeline& timeline_;
    std::int64_t nextRowID_;
    const WriteProgress& onProgress_;
    RowInserter messageRows_;
    RowInserter membershipRows_;
    std::int64_t written_ = 0;
};

} // namespace orvel
