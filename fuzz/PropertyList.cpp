// SPDX-License-Identifier: Apache-2.0
#include "core/PropertyList.h"

#include "core/Text.h"
#include "fuzz/Check.h"

#include <plist/plist.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string_view>

using namespace tavrin;

namespace {

/// Small, so that an input can exceed them.
constexpr PropertyListLimits limits{.size = 2'048, .objectCount = 64, .depth = 6};

struct FreeMemory {
    void operator()(void* memory) const { std::free(memory); }
};
using Iterator = std::unique_ptr<void, FreeMemory>;

/// The children of arrays and dictionaries, and the keys of dictionaries.
template <typename Visit>
void forEachChild(plist_t node, const Visit& visit) {
    if (plist_get_node_type(node) == PLIST_ARRAY) {
        plist_array_iter made = nullptr;
        plist_array_new_iter(node, &made);
        const Iterator iterator(made);
        for (std::uint32_t left = plist_array_get_size(node); left > 0; --left) {
            plist_t item = nullptr;
            plist_array_next_item(node, iterator.get(), &item);
            visit(std::optional<std::string_view>(), item);
        }
    } else if (plist_get_node_type(node) == PLIST_DICT) {
        plist_dict_iter made = nullptr;
        plist_dict_new_iter(node, &made);
        const Iterator iterator(made);
        for (std::uint32_t left = plist_dict_get_size(node); left > 0; --left) {
            char* name = nullptr;
            plist_t item = nullptr;
            plist_dict_next_item(node, iterator.get(), &name, &item);
            const std::unique_ptr<char, FreeMemory> key(name);
            visit(std::optional<std::string_view>(name), item);
        }
    }
}

std::optional<std::string_view> bytesOf(plist_t node) {
    std::uint64_t length = 0;
    switch (plist_get_node_type(node)) {
    case PLIST_STRING: {
        const char* const text = plist_get_string_ptr(node, &length);
        return std::string_view(text, length);
    }
    case PLIST_DATA: {
        const char* const bytes = plist_get_data_ptr(node, &length);
        return std::string_view(bytes, length);
    }
    default:
        return std::nullopt;
    }
}

/// What the limits restrict. A key counts as an object.
struct Measure {
    std::size_t objects = 0;
    std::size_t bytes = 0;
    std::size_t depth = 0;
    bool isWellFormed = true;

    void add(plist_t node, std::size_t level) {
        ++objects;
        depth = std::max(depth, level);
        if (const auto content = bytesOf(node)) {
            bytes += content->size();
            isWellFormed =
                isWellFormed && (plist_get_node_type(node) == PLIST_DATA || isValidUTF8(*content));
        }
        forEachChild(node, [&](std::optional<std::string_view> key, plist_t child) {
            if (key) {
                ++objects;
                bytes += key->size();
                isWellFormed = isWellFormed && isValidUTF8(*key);
            }
            add(child, level + 1);
        });
    }
};

/// A list that we accepted is written by the library and read again.
void checkWritten(plist_t list) {
    char* bytes = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(list, &bytes, &length);
    const std::unique_ptr<char, FreeMemory> written(bytes);
    // The library writes offsets and references, too.
    constexpr PropertyListLimits wider{
        .size = 8 * limits.size, .objectCount = limits.objectCount, .depth = limits.depth};
    const PropertyList again =
        parsePropertyList({reinterpret_cast<const std::uint8_t*>(bytes), length}, wider);
    check(again != nullptr);
    Measure before;
    Measure after;
    before.add(list, 1);
    after.add(again.get(), 1);
    check(before.objects == after.objects && before.depth == after.depth);
    check(before.bytes == after.bytes);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const PropertyList list = parsePropertyList({data, size}, limits);
    if (list) {
        Measure measure;
        measure.add(list.get(), 1);
        check(measure.objects <= limits.objectCount);
        check(measure.depth <= limits.depth);
        // A UTF-16 unit becomes up to three bytes of UTF-8.
        check(measure.bytes <= 3 * limits.size);
        if (measure.isWellFormed) {
            checkWritten(list.get());
        }
    }
    return 0;
}
