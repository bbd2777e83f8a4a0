// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvel {

/// One part of a URL's query, decoded. Without a "=" it has no value, not even an empty one.
struct QueryItem {
    std::string name;
    std::optional<std::string> value;

    bool operator==(const QueryItem&) const = default;
};

/// The items as the text of a query, also of a form's body. What would end an item, a name or the
/// query is percent-encoded, and so is what no query may hold; a space is "%20", and a "+" stays.
/// The text is built in one piece, so that overwriting it leaves no other copy.
[[nodiscard]] std::string percentEncodedQuery(const std::vector<QueryItem>& items);

/// The items of a URL's query, in their order; a "+" is a "+". No value when the text is no URL.
/// Names and values are well-formed UTF-8; what is not is repaired.
[[nodiscard]] std::optional<std::vector<QueryItem>> queryItems(std::string_view url);

} // namespace orvel
