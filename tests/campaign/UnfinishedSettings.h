// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace orvel::test {

/// Whether a killed process may leave a file of this name beside its settings for ever: the name of
/// the settings and six letters that do not look random.
[[nodiscard]] inline bool mayStayBehind(std::string_view name, std::string_view settings) {
    constexpr std::size_t letters = 6;
    if (!name.starts_with(settings) || name.size() != settings.size() + 1 + letters) {
        return false;
    }
    name.remove_prefix(settings.size() + 1);
    const auto isUpper = [](char letter) {
        return letter >= 'A' && letter <= 'Z';
    };
    return std::none_of(name.begin() + 1, name.end(), isUpper) ||
           std::all_of(name.begin(), name.end(), isUpper);
}

} // namespace orvel::test
