// SPDX-License-Identifier: Apache-2.0
#include "core/messages/AttributedBodyDecoder.h"

#include "core/Text.h"
#include "core/messages/KeyedArchive.h"

#include <new>

namespace tavrin::AttributedBodyDecoder {

namespace {

std::string_view asText(Bytes bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

} // namespace

std::optional<std::string> decode(Bytes blob) {
    if (auto text = KeyedArchive::attributedString(blob); text && !text->empty()) {
        return text;
    }
    return decodeTypedStream(blob);
}

std::optional<std::string> decodeTypedStream(Bytes blob) {
    constexpr char stringMarker = '+';
    auto start = firstIndex("NSString", blob);
    if (!start) {
        start = firstIndex("NSMutableString", blob);
    }
    if (!start) {
        return std::nullopt;
    }
    const std::string_view text = asText(blob);
    std::size_t marker = text.find(stringMarker, *start);
    while (marker != std::string_view::npos) {
        const auto field = readVariableLength(blob, marker + 1);
        if (!field || field->length < 1 || field->length > blob.size() - field->next) {
            return std::nullopt;
        }
        const std::string_view content = text.substr(field->next, field->length);
        if (isValidUTF8(content)) {
            try {
                return std::string(content);
            } catch (const std::bad_alloc&) {
                // Treat a text that does not fit into memory as unreadable.
                return std::nullopt;
            }
        }
        marker = text.find(stringMarker, field->next + field->length);
    }
    return std::nullopt;
}

std::optional<std::size_t> firstIndex(std::string_view pattern, Bytes bytes) {
    if (pattern.empty()) {
        return std::nullopt;
    }
    const std::size_t position = asText(bytes).find(pattern);
    if (position == std::string_view::npos) {
        return std::nullopt;
    }
    return position + pattern.size();
}

std::optional<VariableLength> readVariableLength(Bytes bytes, std::size_t position) {
    if (position >= bytes.size()) {
        return std::nullopt;
    }
    const std::uint8_t first = bytes[position];
    const std::size_t next = position + 1;
    if (first <= 0x7F) {
        return VariableLength{first, next};
    }
    if (first < 0x81 || first > 0x83) {
        return std::nullopt;
    }
    const std::size_t width = std::size_t{1} << (first & 3U);
    if (width > bytes.size() - next) {
        return std::nullopt;
    }
    std::uint64_t length = 0;
    for (std::size_t i = width; i-- > 0;) {
        length = length << 8U | bytes[next + i];
    }
    return VariableLength{length, next + width};
}

} // namespace tavrin::AttributedBodyDecoder
