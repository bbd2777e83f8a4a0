// SPDX-License-Identifier: Apache-2.0
#include "core/messages/HandleNormalizer.h"

#include "core/Text.h"
#include "core/UnicodeRules.h"

#include <unicode/uchar.h>

namespace tavrin {

namespace {

/// The number of digits of a North American number with its country code.
constexpr std::size_t northAmericanDigits = 11;

struct Digits {
    std::string text;
    /// Includes the country code.
    std::size_t count = 0;
};

Digits withoutCountryCode(Digits digits) {
    if (digits.count == northAmericanDigits && digits.text.front() == '1') {
        digits.text.erase(0, 1);
    }
    return digits;
}

Digits unicodeDigits(std::string_view text) {
    Digits digits;
    std::size_t next = 0;
    while (next < text.size()) {
        const std::size_t start = next;
        if (u_isdigit(unicode_rules::nextCharacter(text, next)) != 0) {
            digits.text.append(text, start, next - start);
            ++digits.count;
        }
    }
    return withoutCountryCode(std::move(digits));
}

Digits digitsOf(std::string_view text) {
    Digits digits;
    unsigned seen = 0;
    for (const char character : text) {
        seen |= static_cast<unsigned char>(character);
        if (character >= '0' && character <= '9') {
            digits.text.push_back(character);
        }
    }
    if (seen > 0x7F) {
        return unicodeDigits(text);
    }
    digits.count = digits.text.size();
    return withoutCountryCode(std::move(digits));
}

} // namespace

std::string unicode_rules::phoneDigits(std::string_view text) {
    return unicodeDigits(text).text;
}

std::string HandleNormalizer::phoneDigits(std::string_view text) {
    return digitsOf(text).text;
}

std::optional<std::string> HandleNormalizer::matchHint(const Handle& handle) {
    switch (handle.kind()) {
    case Handle::Kind::Phone:
        if (Digits digits = digitsOf(handle.raw()); digits.count >= phoneMinDigits) {
            return std::move(digits.text);
        }
        return std::nullopt;
    case Handle::Kind::Email:
        if (std::string address = lowercased(trimmed(handle.raw())); !address.empty()) {
            return address;
        }
        return std::nullopt;
    }
    return std::nullopt;
}

} // namespace tavrin
