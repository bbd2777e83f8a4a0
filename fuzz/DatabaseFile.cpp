// SPDX-License-Identifier: Apache-2.0
// A damaged database file. An input either is a file, or changes bytes of a sound one.
#include "OrvelAgent/network/JSONCoding.h"
#include "OrvelAgent/scan/IngestClient.h"
#include "core/Text.h"
#include "core/messages/MessagesCollector.h"
#include "core/messages/SQLiteDatabase.h"
#include "fuzz/Check.h"
#include "fuzz/Input.h"
#include "fuzz/MemoryDatabase.h"
#include "tools/sample/ReaderSchema.h"

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using namespace tavrin;

namespace {

constexpr std::uint8_t fileMark = 1;

/// Small pages, so that the file has all kinds of pages: interior and leaf pages of tables and
/// indexes, and overflow pages.
std::vector<std::uint8_t> soundFile() {
    const MemoryDatabase database("sound");
    database.execute("PRAGMA page_size = 512");
    database.execute(orvel::ReaderSchema::tables);
    database.execute(joinsAndIndexes);
    database.execute("BEGIN");
    for (int index = 1; index <= 4; ++index) {
        const std::string number = std::to_string(index);
        database.execute("INSERT INTO handle (id) VALUES ('+1415555013" + number + "')");
        database.execute(
            "INSERT INTO chat (guid, style) VALUES ('chat-" + number + "', " +
            (index % 2 == 0 ? "43" : "45") + ")");
        database.execute("INSERT INTO chat_handle_join VALUES (" + number + ", " + number + ")");
    }
    for (int index = 1; index <= 30; ++index) {
        const std::string number = std::to_string(index);
        const std::string other = std::to_string(index % 4 + 1);
        const std::string text = index % 3 == 0
                                     ? "NULL, CAST('NSString+' || char(5) || 'Hello" +
                                           std::string(index == 15 ? 900 : 0, 'x') + "' AS BLOB)"
                                     : "'text " + number + "', NULL";
        database.execute(
            "INSERT INTO message (guid, text, attributedBody, handle_id, service, date) VALUES "
            "('guid-" +
            number + "', " + text + ", " + other + ", 'iMessage', 731696742000000000 + " + number +
            ")");
        database.execute("INSERT INTO chat_message_join VALUES (" + other + ", " + number + ")");
    }
    database.execute("COMMIT");
    return database.bytes();
}

std::vector<std::uint8_t> fileFrom(Input& input) {
    static const std::vector<std::uint8_t> sound = soundFile();
    if (input.byte() == fileMark) {
        const std::string_view bytes = input.rest();
        return {bytes.begin(), bytes.end()};
    }
    std::vector<std::uint8_t> file = sound;
    while (!input.isAtEnd()) {
        const auto position = static_cast<std::uint64_t>(input.integer(2));
        file[position % file.size()] = input.byte();
    }
    return file;
}

/// Collects all batches. Each one must get on, and no row may come twice.
void walk(MessagesCollector& collector, bool isAscending, MessagesCollector::Options options) {
    static orvel::JSONEncoder encoder;
    constexpr int mostBatches = 5'000;
    std::int64_t bound = isAscending ? std::numeric_limits<std::int64_t>::min()
                                     : std::numeric_limits<std::int64_t>::max();
    for (int batches = 0;; ++batches) {
        check(batches < mostBatches);
        MessagesCollector::Batch batch = isAscending ? collector.collect(bound, options)
                                                     : collector.collectBackfill(bound, options);
        std::int64_t last = bound;
        for (const MessageRecord& record : batch.records) {
            // The rows of one message follow each other.
            check(
                record.rowID == last || (isAscending ? record.rowID > last : record.rowID < last));
            check(record.rowID != bound);
            last = record.rowID;
        }
        check(batch.scanned >= static_cast<std::int64_t>(batch.records.size()));
        orvel::IngestClient::Payload payload;
        payload.records =
            std::make_shared<const orvel::IngestClient::Records>(std::move(batch.records));
        check(isValidUTF8(encoder.encode(payload)));
        if (!batch.hasMore) {
            return;
        }
        const std::int64_t next = isAscending ? batch.highWatermark : batch.lowWatermark;
        check(isAscending ? next > bound : next < bound);
        bound = next;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const MemoryDatabase database("damaged");
    static const auto known = std::make_shared<const MessagesCollector::HintSet>(
        MessagesCollector::HintSet{"4155550131", "4155550132"});
    Input input(data, size);
    database.replaceBytes(fileFrom(input));
    try {
        MessagesCollector collector(std::make_shared<SQLiteDatabase>(database.path()));
        MessagesCollector::Options options;
        options.knownHandleHints = known;
        options.batchLimit = 12;
        static_cast<void>(collector.countMessages(Date(Seconds(1'700'000'000))));
        static_cast<void>(collector.highestRowID());
        walk(collector, false, options);
        options.scope = ThreadScope::AllThreads;
        walk(collector, true, options);
    } catch (const SQLiteError&) {
        // A damaged file must be refused with these error types only.
    } catch (const MessagesCollector::Error&) {
    }
    return 0;
}
