// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

/// Extracts the plain text of an archived attributed string. Nothing here throws: unreadable
/// archives give no text.
namespace tavrin::AttributedBodyDecoder {

using Bytes = std::span<const std::uint8_t>;

struct VariableLength {
    /// In bytes.
    std::uint64_t length;
    /// The position after the length field.
    std::size_t next;

    bool operator==(const VariableLength&) const = default;
};

/// The text of a keyed archive, or else of a typed stream.
[[nodiscard]] std::optional<std::string> decode(Bytes blob);

/// The text of the older typed-stream layout, found by scanning for the string's class name and
/// then for its length-prefixed UTF-8 bytes.
[[nodiscard]] std::optional<std::string> decodeTypedStream(Bytes blob);

/// The position just after the first occurrence of the pattern. No value for an empty pattern.
[[nodiscard]] std::optional<std::size_t> firstIndex(std::string_view pattern, Bytes bytes);

/// Reads a length field: one byte up to 0x7F, or 0x81, 0x82 or 0x83 followed by 2, 4 or 8 bytes in
/// little-endian order.
[[nodiscard]] std::optional<VariableLength> readVariableLength(Bytes bytes, std::size_t position);

} // namespace tavrin::AttributedBodyDecoder
