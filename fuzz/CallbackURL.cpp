// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/network/QueryItems.h"
#include "core/SignInFailure.h"
#include "core/Text.h"
#include "fuzz/Check.h"
#include "fuzz/Input.h"

#include <cstdint>
#include <string>
#include <vector>

using namespace orvel;

namespace {

/// The first byte of an input that is a list of items rather than a URL.
constexpr std::uint8_t itemsMark = 1;

void checkURL(std::string_view url) {
    const auto items = queryItems(url);
    if (!items) {
        return;
    }
    check(items->size() <= url.size() + 1);
    std::size_t total = 0;
    for (const QueryItem& item : *items) {
        check(tavrin::isValidUTF8(item.name));
        total += item.name.size();
        if (item.value) {
            check(tavrin::isValidUTF8(*item.value));
            total += item.value->size();
            const std::string message =
                tavrin::SignInFailure::fromCallbackError(*item.value).message();
            check(tavrin::isValidUTF8(message));
            check(message == tavrin::shownText(message));
        }
    }
    // An ill-formed byte becomes three.
    check(total <= 3 * url.size());
}

/// Encoded items must be decoded again.
void checkItems(Input& input) {
    std::vector<QueryItem> items;
    while (!input.isAtEnd()) {
        QueryItem item;
        const bool hasValue = input.below(4) != 0;
        item.name = tavrin::repairedUTF8(input.text());
        if (hasValue) {
            item.value = tavrin::repairedUTF8(input.text());
        }
        items.push_back(std::move(item));
    }
    const std::string query = percentEncodedQuery(items);
    if (items.empty()) {
        check(query.empty());
        return;
    }
    check(queryItems("orvelagent://callback?" + query) == items);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    if (size > 0 && data[0] == itemsMark) {
        input.byte();
        checkItems(input);
    } else {
        checkURL(input.rest());
    }
    return 0;
}
