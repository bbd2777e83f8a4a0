// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tavrin {

/// The namespace of the attributes that an item of the update feed needs beside those of Sparkle:
/// `sha256`, the hash of the update's file in lower-case hexadecimal digits, and `itemSignature`,
/// the Base64 of the Ed25519 signature of `signedBytes`.
inline constexpr std::string_view updateNamespace =
    "https://www.orvel.example/xml-namespaces/update";

/// Longer fields of an item are neither signed nor accepted.
inline constexpr std::size_t maximumUpdateFieldBytes = 2'048;
inline constexpr std::size_t maximumUpdateNotesBytes = std::size_t{64} << 10U;

/// Every field of an item that the agent uses. An absent field is empty.
///
/// They are signed together, so that the fields of several releases cannot be combined without the
/// key: an old file under a new version, for example.
struct UpdateStatement {
    std::string_view version = {};
    std::string_view shortVersion = {};
    std::string_view notes = {};
    std::string_view channel = {};
    std::string_view minimumSystemVersion = {};
    std::string_view system = {};
    std::string_view architecture = {};
    std::string_view type = {};
    std::string_view url = {};
    /// In decimal digits.
    std::string_view length = {};
    std::string_view sha256 = {};
};

/// The bytes that the signature of an item covers.
///
/// The first line is "orvel-update-item-1"; no file that is signed as an update starts with it.
/// A line for each field follows, in the order of the structure: its name, a colon, its number of
/// bytes in decimal digits, a colon, its bytes and a line feed. The number says where a field ends,
/// so that two different items never give the same bytes, even with line feeds in the notes. No
/// field is left out. The texts are as the agent reads them from the feed: without the white space
/// around them, and with the XML entities replaced.
[[nodiscard]] std::string signedBytes(const UpdateStatement& statement);

} // namespace tavrin
