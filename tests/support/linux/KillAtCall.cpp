// SPDX-License-Identifier: Apache-2.0
#include "tests/support/linux/KillAtCall.h"

#include <fmt/format.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <utility>
#include <vector>

namespace orvel::test {

KillAtCall::KillAtCall(std::filesystem::path counts, std::string program)
    : counts_(std::move(counts)), program_(std::move(program)) {}

std::map<std::string, std::string> KillAtCall::counting() const {
    constexpr CallCounts none{};
    std::ofstream(counts_, std::ios::binary)
        .write(reinterpret_cast<const char*>(none.data()), sizeof none);
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing writes the environment meanwhile
    const char* sanitizer = std::getenv("ASAN_OPTIONS");
    std::map<std::string, std::string> variables{
        {"LD_PRELOAD", KILL_AT_CALL},
        {"KILL_AT_CALL_COUNTS", counts_.string()},
        {"KILL_AT_CALL_PROGRAM", program_},
        {"ASAN_OPTIONS",
         (sanitizer != nullptr ? std::string(sanitizer) + ":" : "") + "verify_asan_link_order=0"}};
    if (refusesUnnamedFiles_) {
        variables["KILL_AT_CALL_WITHOUT_UNNAMED_FILES"] = "1";
    }
    return variables;
}

std::map<std::string, std::string> KillAtCall::killing(const KillPoint& point) const {
    std::map<std::string, std::string> variables = counting();
    variables["KILL_AT_CALL"] = fmt::format(
        "{}:{}:{}",
        static_cast<unsigned>(point.kind),
        point.number,
        static_cast<unsigned>(point.moment));
    return variables;
}

CallCounts KillAtCall::counts() const {
    CallCounts counts{};
    std::ifstream file(counts_, std::ios::binary);
    file.read(reinterpret_cast<char*>(counts.data()), sizeof counts);
    if (!file) {
        throw std::runtime_error("cannot read " + counts_.string());
    }
    return counts;
}

KillPoint KillAtCall::choose(const CallCounts& counts, std::mt19937& random) {
    std::vector<std::size_t> kinds;
    for (std::size_t kind = 0; kind < counts.size(); ++kind) {
        if (counts.at(kind) > 0) {
            kinds.push_back(kind);
        }
    }
    if (kinds.empty()) {
        throw std::runtime_error("kill-at-call counted no call");
    }
    // A share of the calls, because the counts of two runs differ a little.
    std::uniform_real_distribution<double> share(0, 1);
    const std::size_t kind =
        kinds.at(std::uniform_int_distribution<std::size_t>(0, kinds.size() - 1)(random));
    const double position = share(random) * static_cast<double>(counts.at(kind));
    return {
        static_cast<CallKind>(kind),
        1 + static_cast<std::uint64_t>(position),
        static_cast<KillPoint::Moment>(std::uniform_int_distribution<unsigned>(0, 2)(random))};
}

std::string describe(const KillPoint& point) {
    static constexpr std::array kinds{
        "write", "send", "receive", "rename", "remove", "create", "synchronize", "change"};
    static constexpr std::array moments{"before", "after", "in the middle of"};
    return fmt::format(
        "killed {} {} {}",
        moments.at(static_cast<std::size_t>(point.moment)),
        kinds.at(static_cast<std::size_t>(point.kind)),
        point.number);
}

} // namespace orvel::test
