// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

namespace tavrin {

/// Overwrites the bytes in a way that no compiler leaves out.
void wipe(void* bytes, std::size_t size) noexcept;

/// Overwrites every byte that the text owns and empties it.
void wipe(std::string& text) noexcept;

/// A text, such as a token, whose bytes are overwritten when it is dropped, replaced or moved away.
/// It has no operators for printing or joining, so that it does not get into a line by mistake.
class Secret final {
public:
    Secret() = default;
    /// Overwrites the text that it is made from.
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
