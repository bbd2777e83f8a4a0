// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

namespace tavrin {

/// Overwrites the bytes. The compiler cannot optimize this away.
void wipe(void* bytes, std::size_t size) noexcept;

/// Overwrites the whole capacity of the text and empties it.
void wipe(std::string& text) noexcept;

/// A text, such as a token, whose bytes are overwritten when it is destroyed, replaced or moved
/// from. It has no operators for printing or concatenation, to prevent accidental output.
class Secret final {
public:
    Secret() = default;
    /// Overwrites the source text.
    explicit Secret(std::string&& text) noexcept;
    Secret(const Secret&) = default;
    Secret(Secret&& other) noexcept;
    Secret& operator=(const Secret& other);
    Secret& operator=(Secret&& other) noexcept;
    ~Secret();

    [[nodiscard]] const std::string& text() const { return text_; }
    [[nodiscard]] bool isEmpty() const { return text_.empty(); }

    bool operator==(const Secret&) const = default;

private:
    std::string text_;
};

} // namespace tavrin
