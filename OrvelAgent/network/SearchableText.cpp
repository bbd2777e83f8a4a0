// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/network/SearchableText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <numeric>
#include <optional>
#include <utility>

namespace orvel {

namespace {

/// A decoded escape sequence. Never longer than the sequence.
struct Unescaped {
    std::array<char, 4> bytes{};
    std::size_t size = 0;
    /// Of the sequence.
    std::size_t length = 0;

    [[nodiscard]] static Unescaped byte(unsigned value, std::size_t length) {
        Unescaped result;
        result.bytes[result.size++] = static_cast<char>(value);
        result.length = length;
        return result;
    }

    [[nodiscard]] static Unescaped character(unsigned value, std::size_t length) {
        if (value < 0x80) {
            return byte(value, length);
        }
        Unescaped result;
        const auto add = [&result](unsigned lead, unsigned bits) {
            result.bytes[result.size++] = static_cast<char>(lead | bits);
        };
        if (value < 0x800) {
            add(0xC0, value >> 6U);
        } else {
            if (value < 0x10000) {
                add(0xE0, value >> 12U);
            } else {
                add(0xF0, (value >> 18U) & 0x07U);
                add(0x80, (value >> 12U) & 0x3FU);
            }
            add(0x80, (value >> 6U) & 0x3FU);
        }
        add(0x80, value & 0x3FU);
        result.length = length;
        return result;
    }
};

/// The number that these characters are, all of them.
std::optional<unsigned> number(std::string_view digits, int base) {
    unsigned value = 0;
    const char* const end = digits.data() + digits.size();
    const auto result = std::from_chars(digits.data(), end, value, base);
    const bool isNumber = !digits.empty() && result.ec == std::errc() && result.ptr == end;
    return isNumber ? std::optional(value) : std::nullopt;
}

/// The number written with exactly `count` hexadecimal digits at the position.
std::optional<unsigned> hexAt(std::string_view text, std::size_t position, std::size_t count) {
    if (text.size() < position + count) {
        return std::nullopt;
    }
    return number(text.substr(position, count), 16);
}

/// `\uXXXX`, or two of them for one character.
std::optional<Unescaped> unescapedUnicode(std::string_view text) {
    const auto first = hexAt(text, 2, 4);
    if (!first) {
        return std::nullopt;
    }
    if (*first >= 0xD800 && *first < 0xDC00 && text.substr(6).starts_with("\\u")) {
        const auto second = hexAt(text, 8, 4);
        if (second && *second >= 0xDC00 && *second < 0xE000) {
            const unsigned value = 0x10000 + ((*first - 0xD800) << 10U) + (*second - 0xDC00);
            return Unescaped::character(value, 12);
        }
    }
    return Unescaped::character(*first, 6);
}

std::optional<Unescaped> unescapedBackslash(std::string_view text) {
    if (text.size() < 2) {
        return std::nullopt;
    }
    switch (text[1]) {
    case 'u':
        return unescapedUnicode(text);
    case 'x':
        if (const auto byte = hexAt(text, 2, 2)) {
            return Unescaped::byte(*byte, 4);
        }
        return std::nullopt;
    case 'b':
    case 'f':
    case 'n':
    case 'r':
    case 't':
        return Unescaped::byte(' ', 2);
    case '"':
    case '\'':
    case '/':
    case '\\':
        return Unescaped::byte(static_cast<unsigned char>(text[1]), 2);
    default:
        return std::nullopt;
    }
}

std::optional<Unescaped> unescapedEntity(std::string_view text) {
    constexpr std::size_t longestEntity = 10;
    const std::size_t end = text.substr(0, longestEntity).find(';');
    if (end == std::string_view::npos) {
        return std::nullopt;
    }
    std::string_view name = text.substr(1, end - 1);
    if (name.starts_with('#')) {
        name.remove_prefix(1);
        const bool isHex = name.starts_with('x') || name.starts_with('X');
        const auto value = isHex ? number(name.substr(1), 16) : number(name, 10);
        return value && *value <= 0x10FFFF ? std::optional(Unescaped::character(*value, end + 1))
                                           : std::nullopt;
    }
    constexpr std::array<std::pair<std::string_view, char>, 5> entities = {
        {{"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}}};
    const auto known =
        std::ranges::find(entities, name, [](const auto& entity) { return entity.first; });
    return known != entities.end()
               ? std::optional(Unescaped::byte(static_cast<unsigned char>(known->second), end + 1))
               : std::nullopt;
}

bool canStartEscape(char character) {
    return character == '%' || character == '\\' || character == '&';
}

/// The escape sequence at the start of the text.
std::optional<Unescaped> unescaped(std::string_view text) {
    switch (text.front()) {
    case '%':
        if (const auto byte = hexAt(text, 1, 2)) {
            return Unescaped::byte(*byte, 3);
        }
        return std::nullopt;
    case '\\':
        return unescapedBackslash(text);
    case '&':
        return unescapedEntity(text);
    default:
        return std::nullopt;
    }
}

using Origins = std::vector<std::size_t>;

/// Decodes escape sequences in place. Returns whether there were any. Also moves the origins.
bool unescapeOnce(std::string& text, Origins* origins) {
    const std::string_view source = text;
    // Most texts have no escape sequence, and then nothing is moved.
    const auto first = std::ranges::find_if(source, canStartEscape);
    auto position = static_cast<std::size_t>(first - source.begin());
    std::size_t size = position;
    const auto keepOrigin = [&](std::size_t count) {
        if (origins != nullptr) {
            std::fill_n(origins->begin() + std::ptrdiff_t(size), count, (*origins)[position]);
        }
    };
    while (position < source.size()) {
        if (const auto found = unescaped(source.substr(position))) {
            keepOrigin(found->size);
            std::copy_n(found->bytes.begin(), found->size, text.begin() + std::ptrdiff_t(size));
            size += found->size;
            position += found->length;
        } else {
            keepOrigin(1);
            text[size++] = source[position++];
        }
    }
    keepOrigin(1);
    std::memset(text.data() + size, 0, text.size() - size);
    const bool hasChanged = size != text.size();
    text.resize(size);
    return hasChanged;
}

/// Also decodes what is escaped more than once, such as JSON in an HTML page.
void unescapeAll(std::string& text, Origins* origins) {
    constexpr int maximumPasses = 3;
    for (int pass = 0; pass < maximumPasses && unescapeOnce(text, origins); ++pass) {
    }
}

} // namespace

void unescape(std::string& text) {
    unescapeAll(text, nullptr);
}

void lowercase(std::string& text) {
    for (char& character : text) {
        if (character >= 'A' && character <= 'Z') {
            character = static_cast<char>(character - 'A' + 'a');
        }
    }
}

SearchableText::SearchableText(std::string_view source)
    : text_(source), origins_(source.size() + 1) {
    std::iota(origins_.begin(), origins_.end(), std::size_t{0});
    unescapeAll(text_, &origins_);
    lowercase(text_);
}

} // namespace orvel
