// SPDX-License-Identifier: Apache-2.0
#include "core/messages/BatchReader.h"

#include "core/messages/AppleEpoch.h"
#include "core/messages/AttributedBodyDecoder.h"
#include "core/messages/MessageQuery.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

namespace tavrin {

namespace {

namespace column = MessageQuery::column;

/// In a damaged file, this many rows are read at least, to see which ids fit to the others, ...
constexpr std::int64_t leastRowsOutOfOrder = 2'000;
/// ... and at most about this many before the walk fails without a row that fits.
constexpr std::int64_t mostRowsOutOfOrder = 100'000;

/// A batch ends before its limit of rows once its records take so many bytes, because a file or a
/// sender may fill each row with megabytes.
constexpr std::size_t mostBytesPerBatch = std::size_t{16} << 20U;

/// About the memory that it takes.
std::size_t sizeOf(const MessageRecord& record) {
    std::size_t size = sizeof(MessageRecord) + record.guid.size();
    for (const std::string& participant : record.participants) {
        size += sizeof(std::string) + participant.size();
    }
    for (const std::optional<std::string>* text :
         {&record.body, &record.chatGUID, &record.service, &record.senderHandle}) {
        size += *text ? (*text)->size() : 0;
    }
    return size;
}

/// Returns false if there is a text that cannot be decoded.
bool readBody(const BatchReader::Row& row, MessageRecord& record) {
    record.body = row.string(column::text);
    if (record.body && !record.body->empty()) {
        return true;
    }
    record.body.reset();
    const auto blob = row.blob(column::attributedBody);
    if (!blob) {
        return true;
    }
    record.body = AttributedBodyDecoder::decode(*blob);
    if (!record.body || record.body->empty()) {
        record.body.reset();
        record.bodyUnavailable = true;
    }
    return !record.bodyUnavailable;
}

} // namespace

BatchReader::BatchReader(
    ChatIndex& chats, const Options& options, const RowOrder& order, std::int64_t readLimit)
    : chats_(chats), options_(options), order_(order), readLimit_(readLimit) {
    constexpr std::int64_t mostReserved = 1'000;
    const auto expected =
        static_cast<std::size_t>(std::clamp<std::int64_t>(readLimit, 0, mostReserved));
    records_.reserve(expected);
    messages_.reserve(expected + 1);
}

void BatchReader::read(const Row& row) {
    if (isCutOff_) {
        return;
    }
    const std::int64_t rowID = row.integer(column::rowID);
    if (messages_.empty() || messages_.back().rowID != rowID) {
        const std::int64_t before = messages_.empty() ? order_.bound() : messages_.back().rowID;
        isInOrder_ = isInOrder_ && order_.canFollow(before, rowID);
        messages_.push_back({.rowID = rowID, .firstRecord = records_.size()});
    }
    const bool isFull = bytes_ >= mostBytesPerBatch && messages_.size() > 1;
    if (rows_ >= readLimit_ || isFull) {
        isCutOff_ = true;
        return;
    }
    ++rows_;
    examine(row, messages_.back());
}

bool BatchReader::needsMoreRows(const Batch& batch) const {
    if (!isCutOff_) {
        return false;
    }
    return isInOrder_ ? batch.scanned == 0
                      : readLimit_ < leastRowsOutOfOrder ||
                            (batch.scanned == 0 && readLimit_ < mostRowsOutOfOrder);
}

BatchReader::Batch BatchReader::take() {
    const std::vector<bool> fits = messagesInOrder();
    const std::size_t complete = messages_.size() - (isCutOff_ ? 1 : 0);
    Batch batch;
    batch.highWatermark = order_.bound();
    batch.lowWatermark = order_.bound();
    batch.hasMore = isCutOff_;
    auto end = records_.begin();
    for (std::size_t index = 0; index < complete; ++index) {
        const Message& message = messages_[index];
        if (!fits[index]) {
            batch.skippedOutOfOrder += message.rows;
            batch.skippedNotUserContent += message.rows;
            continue;
        }
        if (batch.scanned > 0 && batch.scanned > options_.batchLimit - message.rows) {
            batch.hasMore = true;
            break;
        }
        add(message, batch);
        end = moveRecords(index, end);
    }
    records_.erase(end, records_.end());
    batch.records = std::move(records_);
    return batch;
}

std::vector<bool> BatchReader::messagesInOrder() const {
    if (isInOrder_) {
        return std::vector<bool>(messages_.size(), true);
    }
    std::vector<std::int64_t> rowIDs;
    for (const Message& message : messages_) {
        rowIDs.push_back(message.rowID);
    }
    return order_.fitting(rowIDs);
}

void BatchReader::add(const Message& message, Batch& batch) {
    const bool isFirst = batch.scanned == 0;
    batch.highWatermark = isFirst ? message.rowID : std::max(batch.highWatermark, message.rowID);
    batch.lowWatermark = isFirst ? message.rowID : std::min(batch.lowWatermark, message.rowID);
    batch.scanned += message.rows;
    batch.skippedOutOfScope += message.outOfScope;
    batch.skippedUndecodable += message.undecodable;
    batch.skippedNotUserContent += message.notUserContent;
}

BatchReader::Records::iterator BatchReader::moveRecords(std::size_t message, Records::iterator to) {
    const auto at = [this](std::size_t index) {
        return records_.begin() + static_cast<std::ptrdiff_t>(index);
    };
    const auto first = at(messages_[message].firstRecord);
    const auto last =
        message + 1 < messages_.size() ? at(messages_[message + 1].firstRecord) : records_.end();
    return first == to ? last : std::move(first, last, to);
}

void BatchReader::examine(const Row& row, Message& message) {
    ++message.rows;
    const std::optional<Date> sentAt = AppleEpoch::date(row.integer(column::date));
    if (row.integer(column::itemType) != 0 || row.isNull(column::guid) || !sentAt) {
        ++message.notUserContent;
        return;
    }
    ChatIndex::Chat* const chat =
        row.isNull(column::chat) ? nullptr : chats_.find(row.integer(column::chat));
    std::optional<std::string> handle = MessageQuery::handle(row, column::handle);
    if (!isInScope(chat, handle)) {
        ++message.outOfScope;
        return;
    }
    MessageRecord& record = records_.emplace_back();
    record.guid = row.string(column::guid).value_or("");
    record.rowID = message.rowID;
    if (chat != nullptr) {
        record.chatGUID = chat->info.guid;
        record.participants = chat->info.participants;
        record.isGroupThread = chat->isGroup();
    }
    if (record.participants.empty() && handle) {
        record.participants.push_back(*handle);
    }
    record.isFromMe = row.integer(column::isFromMe) == 1;
    if (!record.isFromMe) {
        record.senderHandle = std::move(handle);
    }
    record.service = row.string(column::service);
    record.sentAt = *sentAt;
    record.hasAttachments = row.integer(column::hasAttachments) == 1;
    record.associatedMessageType = row.integer(column::associatedMessageType);
    if (options_.mode == CollectionMode::WithBodies && !readBody(row, record)) {
        ++message.undecodable;
    }
    bytes_ += sizeOf(record);
}

bool BatchReader::isInScope(ChatIndex::Chat* chat, const std::optional<std::string>& handle) const {
    if (options_.scope == ThreadScope::AllThreads) {
        return true;
    }
    return chats_.isKnown(chat, handle);
}

} // namespace tavrin
