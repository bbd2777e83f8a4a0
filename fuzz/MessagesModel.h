// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/messages/MessageRecord.h"
#include "core/messages/MessagesCollector.h"
#include "fuzz/Input.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// A Messages database as plain values, and a simple way to find the records of a scan in it.
struct MessagesModel {
    struct Message {
        std::optional<std::string> guid;
        std::int64_t date = 0;
        std::int64_t handle = 0;
        std::optional<std::string> text;
        std::optional<std::string> body;
        bool isFromMe = false;
        bool hasAttachments = false;
        bool isItem = false;
        std::int64_t associatedMessageType = 0;
        /// One row of the query for each. May name missing chats.
        std::vector<std::int64_t> chats;
    };

    struct Chat {
        std::string guid;
        std::int64_t style = 0;
        /// May name missing handles, and name one twice.
        std::vector<std::int64_t> participants;
    };

    /// By row id.
    std::map<std::int64_t, Message> messages;
    std::map<std::int64_t, Chat> chats;
    std::map<std::int64_t, std::string> handles;

    /// Every input describes a database.
    [[nodiscard]] static MessagesModel from(Input& input);

    struct Result {
        /// In the order of the row ids.
        std::vector<tavrin::MessageRecord> records;
        std::int64_t rows = 0;
        std::int64_t outOfScope = 0;
        std::int64_t undecodable = 0;
        std::int64_t notUserContent = 0;
    };

    [[nodiscard]] Result scan(const tavrin::MessagesCollector::Options& options) const;

    [[nodiscard]] std::int64_t countMessages(tavrin::Date since) const;
};
