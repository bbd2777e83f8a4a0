// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/base/Logger.h"
#include "core/CancellationToken.h"
#include "platform/AddressBook.h"

#include <QCoroTask>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace orvel {

class Worker;

/// Reads the user's address book.
///
/// Asks for access, extends the known handles by the other identifiers of the same cards, and
/// builds the index of names and e-mail addresses. Missing access and read errors are logged and do
/// not fail a scan. Main thread; the matching runs on the worker. Must outlive its tasks, which
/// throw `tavrin::TaskCancelled` if cancelled: at once while they wait for the user or the address
/// book.
class ContactBridge final {
public:
    enum class Availability { Granted, Denied, NotDetermined };

    struct Identity {
        std::optional<std::string> name;
        /// Trimmed and lower-cased.
        std::vector<std::string> emails;

        bool operator==(const Identity&) const = default;
    };

    using HintSet = std::unordered_set<std::string>;
    /// By match hint.
    using IdentityIndex = std::unordered_map<std::string, Identity>;

    struct Expansion {
        HintSet hints;
        /// The number of new hints.
        std::int64_t added = 0;
        /// The number of cards read.
        std::int64_t scanned = 0;
        /// Access is granted, but not all cards could be read.
        bool isUnreadable = false;
    };

    ContactBridge(AddressBook& addressBook, Worker& worker, LogStore& logStore);

    /// Whether access is granted. Asks the user if there is no decision yet.
    QCoro::Task<bool> requestAccess(tavrin::CancellationToken cancellation = {});

    /// The given hints and those of every card read that has at least one of them.
    QCoro::Task<Expansion> expand(HintSet hints, tavrin::CancellationToken cancellation = {});

    /// Of the cards that could be read. Empty without access.
    QCoro::Task<IdentityIndex> buildIdentityIndex(tavrin::CancellationToken cancellation = {});

    [[nodiscard]] static std::optional<Identity>
    identity(std::string_view handle, const IdentityIndex& index);

    [[nodiscard]] Availability availability() const;

    /// Whether the system provides no address book at the moment, even if the user has granted
    /// access.
    [[nodiscard]] bool isRestricted() const {
        return addressBook_.authorizationStatus() == AddressBook::AuthorizationStatus::Restricted;
    }

    /// The name of the current authorization status, for the log.
    [[nodiscard]] std::string rawStatusName() const;

private:
    [[nodiscard]] bool isGranted() const { return availability() == Availability::Granted; }
    QCoro::Task<AddressBook::Cards>
    cardsWith(AddressBook::Fields fields, tavrin::CancellationToken cancellation);

    AddressBook& addressBook_;
    Worker& worker_;
    Logger log_;
};

} // namespace orvel
