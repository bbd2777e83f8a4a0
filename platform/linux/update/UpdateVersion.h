// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <compare>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvel {

/// A version of this application, ordered by its components.
///
/// Points, hyphens, underscores, plus signs and each change between digits and letters separate
/// components: "1.10-beta2" is 1, 10, beta, 2. They are compared from the left, numbers as numbers
/// of any length, words byte by byte, and a word is below every number. A shorter version is padded
/// with zeros. Thus 1.9 < 1.10, 1.0 = 1.0.0, and 1.0-beta2 < 1.0-rc1 < 1.0 < 1.0.1.
class UpdateVersion final {
public:
    static constexpr std::size_t maximumLength = 64;

    /// No value unless it begins with a digit, has ASCII letters, digits and single separators
    /// only, ends with no separator, and is not too long.
    [[nodiscard]] static std::optional<UpdateVersion> parse(std::string_view text);

    /// As it was parsed.
    [[nodiscard]] const std::string& text() const { return text_; }

    [[nodiscard]] std::weak_ordering operator<=>(const UpdateVersion& other) const;
    [[nodiscard]] bool operator==(const UpdateVersion& other) const {
        return std::is_eq(*this <=> other);
    }

private:
    /// Digits without leading zeros, so that zero is empty; or letters.
    using Component = std::string;

    [[nodiscard]] const Component& component(std::size_t index) const;

    std::string text_;
    std::vector<Component> components_;
};

} // namespace orvel
