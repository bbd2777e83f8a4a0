// SPDX-License-Identifier: Apache-2.0
#include "core/Secret.h"

#include <utility>

namespace tavrin {

void wipe(void* bytes, std::size_t size) noexcept {
    // Volatile, because the compiler could remove writes whose result is never read.
    auto* const characters = static_cast<volatile char*>(bytes);
    for (std::size_t index = 0; index < size; ++index) {
        characters[index] = '\0';
    }
}

void wipe(std::string& text) noexcept {
    // The unused capacity may contain the end of a longer text. Resizing within the capacity
    // neither allocates nor throws.
    text.resize(text.capacity());
    wipe(text.data(), text.size());
    text.clear();
}

Secret::Secret(std::string&& text) noexcept : text_(std::move(text)) {
    // Moving a short text copies it.
    wipe(text);
}

Secret::Secret(Secret&& other) noexcept : text_(std::move(other.text_)) {
    wipe(other.text_);
}

Secret& Secret::operator=(const Secret& other) {
    if (this != &other) {
        *this = Secret(other);
    }
    return *this;
}

Secret& Secret::operator=(Secret&& other) noexcept {
    if (this != &other) {
        wipe(text_);
        text_ = std::move(other.text_);
        wipe(other.text_);
    }
    return *this;
}

Secret::~Secret() {
    wipe(text_);
}

} // namespace tavrin
