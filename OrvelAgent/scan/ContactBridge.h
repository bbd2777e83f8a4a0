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

/// The agent's only reader of the user's address book.
///
/// Widens the set of known handles with the other identifiers of the same cards, builds the index
/// from which records get names and e-mail addresses, and asks for access. Missing access and
/// reading errors are logged and never fail a scan. Main thread, with the matching itself on the
/// worker; must outlive the tasks it returns. Those throw `tavrin::TaskCancelled` when cancelled,
/// and at once where they wait for the user or for the address book.
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
        /// How many hints are new.
        std::int64_t added = 0;
        /// How many cards were read.
        std::int64_t scanned = 0;
    };

    ContactBridge(AddressBook& addressBook, Worker& worker, LogStore& logStore);

    /// Whether access is granted, after asking the user when nothing is decided yet.
    QCoro::Task<bool> requestAccess(tavrin::CancellationToken cancellation = {});

    /// The hints and the identifiers of every card that shares one with the given set.
    QCoro::Task<Expansion> expand(HintSet hints, tavrin::CancellationToken cancellation = {});

    /// Empty when access is missing or reading fails.
    QCoro::Task<IdentityIndex> buildIdentityIndex(tavrin::CancellationToken cancellation = {});

    [[nodiscard]] static std::optional<Identity>
    identity(std::string_view handle, const IdentityIndex& index);

    [[nodiscard]] Availability availability() const;

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
