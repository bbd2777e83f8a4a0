// SPDX-License-Identifier: Apache-2.0
#include "tests/campaign/FaultList.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>
#include <stdexcept>
#include <utility>

namespace orvel::test {

namespace {

std::uint64_t faultsOf(const FaultList::Row& row, std::size_t actions) {
    return row.calls * row.errors.size() * actions;
}

} // namespace

FaultList::FaultList(std::vector<Row> rows, std::vector<CallFault::Action> actions)
    : rows_(std::move(rows)), actions_(std::move(actions)) {
    for (const Row& row : rows_) {
        size_ += faultsOf(row, actions_.size());
    }
    // The golden ratio spreads the first seeds evenly. Without a common divisor, no fault is
    // skipped.
    step_ = std::max<std::uint64_t>(1, size_ * 618 / 1000);
    while (std::gcd(step_, size_) != 1) {
        ++step_;
    }
}

CallFault FaultList::of(unsigned seed) const {
    if (seed == 0) {
        throw std::invalid_argument("seeds begin with 1");
    }
    std::uint64_t position = (seed - 1) % size_ * step_ % size_;
    for (const Row& row : rows_) {
        const std::uint64_t faults = faultsOf(row, actions_.size());
        if (position < faults) {
            CallFault fault;
            fault.kind = row.kind;
            fault.error = row.errors.at(position % row.errors.size());
            position /= row.errors.size();
            fault.action = actions_.at(position % actions_.size());
            fault.number = 1 + position / actions_.size();
            return fault;
        }
        position -= faults;
    }
    throw std::logic_error("no fault has this position");
}

std::optional<std::string> FaultList::missing(const CallCounts& counts, std::size_t kinds) const {
    std::string text;
    for (std::size_t kind = 0; kind < kinds; ++kind) {
        const auto row = std::ranges::find(rows_, static_cast<CallKind>(kind), &Row::kind);
        const std::uint64_t calls = row == rows_.end() ? 0 : row->calls;
        if (counts.at(kind) > calls) {
            text += fmt::format(
                "{}the program made {} calls of kind {}, but only {} of them fail in turn",
                text.empty() ? "" : "; ",
                counts.at(kind),
                kind,
                calls);
        }
    }
    return text.empty() ? std::nullopt : std::optional(text);
}

} // namespace orvel::test
