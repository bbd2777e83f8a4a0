// SPDX-License-Identifier: Apache-2.0
#include "tests/campaign/FailedWrites.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <system_error>
#include <utility>
#include <vector>

namespace orvel::test {

namespace {

const std::vector<int>& errors() {
    static const std::vector<int> all{ENOSPC, EROFS, EDQUOT, EACCES, EIO, ENOENT};
    return all;
}

std::vector<std::pair<CallKind, std::uint64_t>> kinds(const WritingCalls& calls) {
    return {
        {CallKind::Write, calls.write},
        {CallKind::Rename, calls.rename},
        {CallKind::Remove, calls.remove},
        {CallKind::Create, calls.create},
        {CallKind::Synchronize, calls.synchronize},
        {CallKind::Change, calls.change}};
}

} // namespace

FaultList failingWrites(const WritingCalls& calls) {
    std::vector<FaultList::Row> rows;
    for (const auto& [kind, count] : kinds(calls)) {
        rows.push_back({kind, count, errors()});
    }
    return FaultList(std::move(rows), {CallFault::Action::Fail, CallFault::Action::FailFromThen});
}

std::string missingWrites(const WritingCalls& calls, const CallCounts& counts) {
    std::string text;
    bool isMissing = false;
    for (const auto& [kind, count] : kinds(calls)) {
        const std::uint64_t made = counts.at(static_cast<std::size_t>(kind));
        isMissing = isMissing || made > count;
        text += fmt::format("{} of {} calls of kind {}; ", made, count, static_cast<int>(kind));
    }
    return isMissing ? text : std::string();
}

std::string wrongAboutWrite(std::string_view text, const std::vector<std::string>& paths) {
    const auto has = [text](const std::string& part) {
        return text.find(part) != std::string_view::npos;
    };
    std::string wrong;
    if (std::ranges::none_of(paths, has)) {
        wrong += "no file or folder, ";
    }
    // A call that fails once may succeed where the reason is looked for.
    if (std::ranges::none_of(
            errors(), [&](int error) { return has(std::generic_category().message(error)); })) {
        wrong += "no reason, ";
    }
    if (!has("try again") && !has("choose another folder")) {
        wrong += "no remedy, ";
    }
    return wrong.empty() ? wrong : fmt::format("{}in the sentence: {}", wrong, text);
}

} // namespace orvel::test
