// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvel {

/// One decoded item of a URL's query. An item without "=" has no value.
struct QueryItem {
    std::string name;
    std::optional<std::string> value;

    bool operator==(const QueryItem&) const = default;
};

/// Encodes the items as a query or as the body of a form. Percent-encodes separators and characters
/// that are invalid in a query. A space becomes "%20", and "+" is unchanged. The text is allocated
/// once, so wiping it leaves no other copy.
[[nodiscard]] std::string percentEncodedQuery(const std::vector<QueryItem>& items);

/// The items of a URL's query, in order. Does not decode "+" as a space. Repairs ill-formed UTF-8.
/// Returns no value if the text is not a URL.
[[nodiscard]] std::optional<std::vector<QueryItem>> queryItems(std::string_view url);

} // namespace orvel
