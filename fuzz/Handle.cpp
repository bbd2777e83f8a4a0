// SPDX-License-Identifier: Apache-2.0
#include "core/messages/Handle.h"

#include "core/Text.h"
#include "core/UnicodeRules.h"
#include "core/messages/HandleNormalizer.h"
#include "fuzz/Check.h"

#include <algorithm>

using namespace tavrin;

namespace {

/// Classifies without the fast path for ASCII.
Handle classifiedByUnicodeRules(const std::string& text) {
    const std::string_view trimmed = unicode_rules::trimmed(text);
    if (trimmed.find('@') != std::string_view::npos) {
        return {Handle::Kind::Email, unicode_rules::lowercased(trimmed)};
    }
    return {Handle::Kind::Phone, std::string(trimmed)};
}

std::optional<std::string> hintByUnicodeRules(const Handle& handle) {
    if (handle.kind() == Handle::Kind::Email) {
        std::string hint = unicode_rules::lowercased(unicode_rules::trimmed(handle.raw()));
        return hint.empty() ? std::nullopt : std::optional(std::move(hint));
    }
    std::string digits = unicode_rules::phoneDigits(handle.raw());
    const auto characters = std::count_if(digits.begin(), digits.end(), [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U;
    });
    return characters < 7 ? std::nullopt : std::optional(std::move(digits));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view raw(reinterpret_cast<const char*>(data), size);
    const std::string repaired = repairedUTF8(raw);
    check(isValidUTF8(repaired));
    check(isValidUTF8(raw) == (repaired == raw));
    check(trimmed(repaired) == unicode_rules::trimmed(repaired));
    check(lowercased(repaired) == unicode_rules::lowercased(repaired));
    check(HandleNormalizer::phoneDigits(raw) == unicode_rules::phoneDigits(raw));

    const Handle handle = Handle::classify(raw);
    check(handle == classifiedByUnicodeRules(repaired));
    const auto hint = HandleNormalizer::matchHint(handle);
    check(hint == hintByUnicodeRules(handle));
    check(!hint || isValidUTF8(*hint));

    const std::string_view start = prefix(repaired, size / 2);
    check(repaired.starts_with(start) && isValidUTF8(start));
    return 0;
}
