// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/update/UpdateVersion.h"

#include <algorithm>

namespace orvel {

namespace {

// Independent of the locale.
bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

bool isLetter(char character) {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
}

bool isSeparator(char character) {
    return character == '.' || character == '-' || character == '_' || character == '+';
}

bool isWord(const std::string& component) {
    return !component.empty() && isLetter(component.front());
}

} // namespace

std::optional<UpdateVersion> UpdateVersion::parse(std::string_view text) {
    if (text.empty() || text.size() > maximumLength || !isDigit(text.front())) {
        return std::nullopt;
    }
    UpdateVersion version;
    version.text_ = text;
    while (!text.empty()) {
        const auto isSameKind = isDigit(text.front()) ? isDigit : isLetter;
        const auto end = std::ranges::find_if_not(text, isSameKind);
        if (end == text.begin()) {
            return std::nullopt;
        }
        Component component(text.begin(), end);
        if (isDigit(component.front())) {
            component.erase(0, component.find_first_not_of('0'));
        }
        version.components_.push_back(std::move(component));
        text.remove_prefix(static_cast<std::size_t>(end - text.begin()));
        if (!text.empty() && isSeparator(text.front())) {
            text.remove_prefix(1);
            if (text.empty()) {
                return std::nullopt;
            }
        }
    }
    return version;
}

std::weak_ordering UpdateVersion::operator<=>(const UpdateVersion& other) const {
    const std::size_t count = std::max(components_.size(), other.components_.size());
    for (std::size_t index = 0; index < count; ++index) {
        const Component& mine = component(index);
        const Component& others = other.component(index);
        if (isWord(mine) != isWord(others)) {
            return isWord(mine) ? std::weak_ordering::less : std::weak_ordering::greater;
        }
        if (!isWord(mine) && mine.size() != others.size()) {
            return mine.size() <=> others.size();
        }
        if (const auto order = mine <=> others; std::is_neq(order)) {
            return order;
        }
    }
    return std::weak_ordering::equivalent;
}

const UpdateVersion::Component& UpdateVersion::component(std::size_t index) const {
    static const Component zero;
    return index < components_.size() ? components_[index] : zero;
}

} // namespace orvel
