// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace orvel::test {

/// Whether a killed process may leave a file of this name beside its settings for ever, if another
/// process was waiting to write: the name of the settings and six letters. The other process takes
/// the killed one's lock file over, without which nothing shows whose file it is.
[[nodiscard]] inline bool mayStayBehind(std::string_view name, std::string_view settings) {
    constexpr std::size_t letters = 6;
    if (!name.starts_with(settings) || name.size() != settings.size() + 1 + letters) {
        return false;
    }
    name.remove_prefix(settings.size() + 1);
    return std::ranges::all_of(name, [](char letter) {
        return (letter >= 'A' && letter <= 'Z') || (letter >= 'a' && letter <= 'z');
    });
}

} // namespace orvel::test
