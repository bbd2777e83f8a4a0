// SPDX-License-Identifier: Apache-2.0
#include "core/PropertyList.h"

#include "core/PropertyListScreens.h"

#include <plist/plist.h>

#include <algorithm>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

namespace tavrin {

namespace {

[[nodiscard]] bool looksLikeXML(std::string_view text) {
    if (text.starts_with("\xEF\xBB\xBF")) {
        text.remove_prefix(3);
    }
    text.remove_prefix(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
    return text.starts_with("<?xml") || text.starts_with("<!DOCTYPE plist") ||
           text.starts_with("<plist");
}

} // namespace

void PropertyListDeleter::operator()(void* node) const noexcept {
    plist_free(node);
}

PropertyList
parsePropertyList(std::span<const std::uint8_t> bytes, const PropertyListLimits& limits) {
    if (bytes.size() >
        std::min<std::size_t>(limits.size, std::numeric_limits<std::uint32_t>::max())) {
        return nullptr;
    }
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    plist_t list = nullptr;
    if (text.starts_with(PropertyListScreens::binaryMagic)) {
        std::string binary(text);
        if (PropertyListScreens::passesBinary(binary, limits)) {
            plist_from_bin(binary.data(), static_cast<std::uint32_t>(binary.size()), &list);
        }
    } else if (looksLikeXML(text)) {
        if (const auto xml = PropertyListScreens::screenedXML(text, limits)) {
            plist_from_xml(xml->data(), static_cast<std::uint32_t>(xml->size()), &list);
        }
    }
    return PropertyList(list);
}

} // namespace tavrin
