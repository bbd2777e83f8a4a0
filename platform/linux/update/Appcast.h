// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvel {

/// One item of an update feed, unchecked. An absent value is empty; one that is too long is cut,
/// after which the item's signature does not fit.
struct AppcastItem {
    struct Enclosure {
        std::string url;
        std::string type;
        std::string length;
        /// Base64.
        std::string signature;
        /// Hexadecimal digits.
        std::string sha256;
        /// Base64. Covers the other fields.
        std::string itemSignature;
        std::string system;
        std::string architecture;
    };

    std::string version;
    std::string shortVersion;
    std::string description;
    std::string channel;
    std::string minimumSystemVersion;
    std::optional<Enclosure> enclosure;
};

/// An update feed: RSS 2.0 whose items carry an enclosure each, with the elements and attributes of
/// `appcastNamespace` and, in the enclosure, the attributes of `tavrin::updateNamespace`. The
/// version may stand in the item or in the enclosure.
inline constexpr std::string_view appcastNamespace =
    "http://www.andymatuschak.org/xml-namespaces/sparkle";

inline constexpr std::size_t maximumAppcastBytes = std::size_t{1} << 20U;
/// Enough for ten years with two releases a month for two architectures as two kinds of package.
inline constexpr std::size_t maximumAppcastItems = 1'000;
/// Of all kinds, in and outside the items. Different names need memory until the feed is read.
inline constexpr std::size_t maximumAppcastElements = 20 * maximumAppcastItems;

/// The items in the feed's order. Throws `UpdateError` for a feed that is too long, has too many
/// items or elements, is not UTF-8, not well-formed, nested too deep, not RSS 2.0, or that declares
/// a document type, because its entities could expand without limit or load other files.
[[nodiscard]] std::vector<AppcastItem> parseAppcast(std::string_view text);

} // namespace orvel
