// SPDX-License-Identifier: Apache-2.0
#include "core/VersionHistory.h"
#include "fuzz/Check.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

using Releases = std::vector<tavrin::VersionHistory::Release>;

namespace {

/// A change log with the same releases.
std::string written(const Releases& releases) {
    std::string text;
    for (const auto& release : releases) {
        text += "## [" + release.version + "]";
        text += release.date.empty() ? "\n" : " - " + release.date + "\n";
        for (const auto& change : release.changes) {
            text += "### " + change.label + "\n- " + change.text + "\n";
        }
    }
    return text;
}

bool isSame(const Releases& one, const Releases& other) {
    if (one.size() != other.size()) {
        return false;
    }
    for (std::size_t index = 0; index < one.size(); ++index) {
        const auto& left = one[index];
        const auto& right = other[index];
        if (left.version != right.version || left.date != right.date ||
            left.changes.size() != right.changes.size()) {
            return false;
        }
        for (std::size_t change = 0; change < left.changes.size(); ++change) {
            if (left.changes[change].label != right.changes[change].label ||
                left.changes[change].text != right.changes[change].text) {
                return false;
            }
        }
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const Releases releases = tavrin::VersionHistory::parse(text);
    std::size_t total = 0;
    for (const auto& release : releases) {
        total += release.version.size() + release.date.size();
        for (const auto& change : release.changes) {
            check(!change.label.empty() && !change.text.empty());
            total += change.text.size();
        }
    }
    check(total <= size);
    check(isSame(tavrin::VersionHistory::parse(written(releases)), releases));
    return 0;
}
