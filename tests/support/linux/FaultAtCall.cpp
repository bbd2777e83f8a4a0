// SPDX-License-Identifier: Apache-2.0
#include "tests/support/linux/FaultAtCall.h"

#include <fmt/format.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <utility>
#include <vector>

namespace orvel::test {

FaultAtCall::FaultAtCall(std::filesystem::path counts, std::string program)
    : counts_(std::move(counts)), program_(std::move(program)) {}

std::map<std::string, std::string> FaultAtCall::counting() const {
    constexpr CallCounts none{};
    std::ofstream(counts_, std::ios::binary)
        .write(reinterpret_cast<const char*>(none.data()), sizeof none);
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing writes the environment meanwhile
    const char* sanitizer = std::getenv("ASAN_OPTIONS");
    std::map<std::string, std::string> variables{
        {"LD_PRELOAD", FAULT_AT_CALL},
        {"FAULT_AT_CALL_COUNTS", counts_.string()},
        {"FAULT_AT_CALL_PROGRAM", program_},
        {"ASAN_OPTIONS",
         (sanitizer != nullptr ? std::string(sanitizer) + ":" : "") + "verify_asan_link_order=0"}};
    if (!certificates_.empty()) {
        variables["FAULT_AT_CALL_CERTIFICATES"] = certificates_.string();
    }
    if (refusesUnnamedFiles_) {
        variables["FAULT_AT_CALL_WITHOUT_UNNAMED_FILES"] = "1";
    }
    return variables;
}

std::map<std::string, std::string> FaultAtCall::with(const CallFault& fault) const {
    std::map<std::string, std::string> variables = counting();
    variables["FAULT_AT_CALL"] = fmt::format(
        "{}:{}:{}:{}",
        static_cast<unsigned>(fault.kind),
        fault.number,
        static_cast<unsigned>(fault.action),
        fault.error);
    return variables;
}

CallCounts FaultAtCall::counts() const {
    CallCounts counts{};
    std::ifstream file(counts_, std::ios::binary);
    file.read(reinterpret_cast<char*>(counts.data()), sizeof counts);
    if (!file) {
        throw std::runtime_error("cannot read " + counts_.string());
    }
    return counts;
}

CallFault FaultAtCall::chooseKill(const CallCounts& counts, std::mt19937& random) {
    std::vector<std::size_t> kinds;
    for (std::size_t kind = 0; kind < changingCallKinds; ++kind) {
        if (counts.at(kind) > 0) {
            kinds.push_back(kind);
        }
    }
    if (kinds.empty()) {
        throw std::runtime_error("fault-at-call counted no call");
    }
    // A share of the calls, because the counts of two runs differ a little.
    std::uniform_real_distribution<double> share(0, 1);
    const std::size_t kind =
        kinds.at(std::uniform_int_distribution<std::size_t>(0, kinds.size() - 1)(random));
    const double position = share(random) * static_cast<double>(counts.at(kind));
    return {
        static_cast<CallKind>(kind),
        1 + static_cast<std::uint64_t>(position),
        static_cast<CallFault::Action>(std::uniform_int_distribution<unsigned>(0, 2)(random))};
}

std::string describe(const CallFault& fault) {
    static constexpr std::array kinds{
        "write",
        "send",
        "receive",
        "rename",
        "remove",
        "create",
        "synchronize",
        "change",
        "read",
        "open",
        "close",
        "inspect",
        "connect",
        "random",
        "descriptor",
        "thread",
        "allocate"};
    static_assert(kinds.size() == callKinds);
    using Action = CallFault::Action;
    const std::string call =
        fmt::format("{} {}", kinds.at(static_cast<std::size_t>(fault.kind)), fault.number);
    switch (fault.action) {
    case Action::KillBefore:
        return "killed before " + call;
    case Action::KillAfter:
        return "killed after " + call;
    case Action::KillHalf:
        return "killed in the middle of " + call;
    case Action::Fail:
    case Action::FailFromThen:
        break;
    }
    return fmt::format(
        "{}{} failed with {}",
        call,
        fault.action == Action::Fail ? "" : " and all later ones",
        // NOLINTNEXTLINE(concurrency-mt-unsafe): this one returns constants
        strerrorname_np(fault.error));
}

} // namespace orvel::test
