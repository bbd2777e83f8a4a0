// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/messages/ChatIndex.h"
#include "core/messages/MessagesCollector.h"
#include "core/messages/RowOrder.h"
#include "core/messages/SQLiteDatabase.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tavrin {

/// Builds a batch from the rows of one query.
class BatchReader final {
public:
    using Batch = MessagesCollector::Batch;
    using Options = MessagesCollector::Options;
    using Row = SQLiteDatabase::Row;

    /// Examines at most `readLimit` rows. The row after them only shows where the last message
    /// ends.
    BatchReader(
        ChatIndex& chats, const Options& options, const RowOrder& order, std::int64_t readLimit);

    /// The rows must come in the order of the query.
    void read(const Row& row);

    /// Whether only a query with a larger limit can tell what belongs to the batch.
    [[nodiscard]] bool needsMoreRows(const Batch& batch) const;

    /// Leaves an incomplete message, and all that exceeds the batch limit, to the next batch.
    [[nodiscard]] Batch take();

private:
    /// The rows of one message, which follow each other.
    struct Message {
        std::int64_t rowID = 0;
        /// The index of its first record. The others follow.
        std::size_t firstRecord = 0;
        std::int64_t rows = 0;
        std::int64_t outOfScope = 0;
        std::int64_t undecodable = 0;
        std::int64_t notUserContent = 0;
    };

    using Records = std::vector<MessageRecord>;

    [[nodiscard]] std::vector<bool> messagesInOrder() const;
    static void add(const Message& message, Batch& batch);
    /// Moves the message's records to that place, and returns the place behind them.
    Records::iterator moveRecords(std::size_t message, Records::iterator to);
    void examine(const Row& row, Message& message);
    [[nodiscard]] bool
    isInScope(ChatIndex::Chat* chat, const std::optional<std::string>& handle) const;

    ChatIndex& chats_;
    const Options& options_;
    const RowOrder order_;
    const std::int64_t readLimit_;
    Records records_;
    std::vector<Message> messages_;
    /// Rows examined.
    std::int64_t rows_ = 0;
    /// Of the records.
    std::size_t bytes_ = 0;
    bool isInOrder_ = true;
    /// Whether there is a row beyond the limit. It belongs to the last message.
    bool isCutOff_ = false;
};

} // namespace tavrin
