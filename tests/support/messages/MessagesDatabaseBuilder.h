// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct sqlite3;

namespace orvel::test {

/// Creates a real Messages database file, row by row. Keeps it open until destroyed, so that
/// readers find a file in use.
///
/// The file has the tables, columns and indexes that a reader of messages needs. Texts are stored
/// unchanged, including ill-formed UTF-8 and embedded NULs. Every failure throws
/// `std::runtime_error`.
class MessagesDatabaseBuilder final {
public:
    /// 2024-03-09T17:05:42Z.
    static constexpr std::int64_t someDate = 731'696'742'000'000'000;
    static constexpr std::int64_t oneToOneStyle = 45;
    static constexpr std::int64_t groupStyle = 43;

    struct Chat {
        std::optional<std::int64_t> rowID = std::nullopt;
        std::optional<std::string> guid = std::nullopt;
        /// Row ids of handles.
        std::vector<std::int64_t> participants = {};
        std::optional<std::int64_t> style = oneToOneStyle;
    };

    struct Message {
        /// By default, one more than the largest so far.
        std::optional<std::int64_t> rowID = std::nullopt;
        std::optional<std::string> guid = "some-guid";
        std::optional<std::int64_t> date = someDate;
        bool isFromMe = false;
        std::optional<std::string> service = "iMessage";
        bool hasAttachments = false;
        std::optional<std::string> text = std::nullopt;
        std::optional<std::string> attributedBody = std::nullopt;
        /// The row id of the sender's handle.
        std::optional<std::int64_t> handle = std::nullopt;
        /// Row ids of the chats that the message belongs to.
        std::vector<std::int64_t> chats = {};
        std::int64_t associatedMessageType = 0;
        std::int64_t itemType = 0;
    };

    /// The file must not exist, but its directory must.
    explicit MessagesDatabaseBuilder(const std::filesystem::path& path);
    ~MessagesDatabaseBuilder();
    MessagesDatabaseBuilder(const MessagesDatabaseBuilder&) = delete;
    MessagesDatabaseBuilder& operator=(const MessagesDatabaseBuilder&) = delete;

    /// The path as text.
    [[nodiscard]] const std::string& path() const { return path_; }

    /// Each function returns the row id.
    std::int64_t addHandle(std::string_view id);
    std::int64_t addChat(const Chat& chat);
    std::int64_t addMessage(const Message& message);

    /// Drops the column with its content, as in older or newer schemas.
    void dropColumn(std::string_view table, std::string_view column);
    void dropTable(std::string_view table);
    /// Replaces the table by a view, so that no rows can be added.
    void replaceByView(std::string_view table);

    /// Executes any other statement.
    void execute(const std::string& sql);

    /// Runs `fill` in one transaction, which is much faster for many rows.
    template <typename Fill>
    void inOneTransaction(Fill fill) {
        execute("BEGIN");
        fill();
        execute("COMMIT");
    }

private:
    struct ConnectionDeleter {
        void operator()(sqlite3* connection) const;
    };

    std::string path_;
    std::unique_ptr<sqlite3, ConnectionDeleter> connection_;
};

} // namespace orvel::test
