// SPDX-License-Identifier: Apache-2.0
#include "core/messages/KeyedArchive.h"

#include "core/Text.h"

#include <plist/plist.h>

#include <limits>
#include <new>
#include <string_view>

namespace tavrin::KeyedArchive {

namespace {

/// The text of a string or data node. Valid as long as the node.
std::optional<std::string_view> text(plist_t node) {
    std::uint64_t length = 0;
    const char* characters = nullptr;
    switch (plist_get_node_type(node)) {
    case PLIST_STRING:
        characters = plist_get_string_ptr(node, &length);
        break;
    case PLIST_DATA:
        characters = plist_get_data_ptr(node, &length);
        break;
    default:
        return std::nullopt;
    }
    return std::string_view(characters, length);
}

/// The index that the node refers to, or no value. In XML, a reference is a dictionary.
std::optional<std::uint64_t> referredIndex(plist_t node) {
    std::uint64_t index = 0;
    if (plist_get_node_type(node) == PLIST_UID) {
        plist_get_uid_val(node, &index);
        return index;
    }
    const plist_t number = plist_dict_get_item(node, "CF$UID");
    if (plist_get_node_type(number) == PLIST_UINT && plist_dict_get_size(node) == 1) {
        plist_get_uint_val(number, &index);
        return index;
    }
    return std::nullopt;
}

/// The archived object that the node refers to. Null for nil and for other nodes.
plist_t referredObject(plist_t node, plist_t objects) {
    const auto index = referredIndex(node);
    // Index 0 is nil.
    if (!index || *index == 0 || *index >= plist_array_get_size(objects)) {
        return nullptr;
    }
    return plist_array_get_item(objects, static_cast<std::uint32_t>(*index));
}

/// The node's text, or the text of the object that it refers to.
std::optional<std::string_view> textOrReferredText(plist_t node, plist_t objects) {
    return text(referredIndex(node) ? referredObject(node, objects) : node);
}

bool isOfClass(plist_t object, std::string_view name, plist_t objects) {
    const plist_t classObject = referredObject(plist_dict_get_item(object, "$class"), objects);
    const plist_t names = plist_dict_get_item(classObject, "$classes");
    // Real classes have a few ancestors. Each access walks the list from its start, so a long
    // forged list would take minutes.
    constexpr std::uint32_t mostAncestors = 16;
    const std::uint32_t count = std::min(plist_array_get_size(names), mostAncestors);
    for (std::uint32_t i = 0; i < count; ++i) {
        if (text(plist_array_get_item(names, i)) == name) {
            return true;
        }
    }
    return false;
}

std::optional<std::string_view> stringObjectText(plist_t object, plist_t objects) {
    for (const char* const key : {"NS.string", "NS.bytes"}) {
        if (const auto content = textOrReferredText(plist_dict_get_item(object, key), objects)) {
            return content;
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<std::string> attributedString(std::span<const std::uint8_t> archive) {
    try {
        const PropertyList list = parsePropertyList(archive, limits);
        if (text(plist_dict_get_item(list.get(), "$archiver")) != "NSKeyedArchiver") {
            return std::nullopt;
        }
        const plist_t objects = plist_dict_get_item(list.get(), "$objects");
        const plist_t top = plist_dict_get_item(list.get(), "$top");
        const plist_t root = referredObject(plist_dict_get_item(top, "root"), objects);
        if (!isOfClass(root, "NSAttributedString", objects)) {
            return std::nullopt;
        }
        const plist_t string = plist_dict_get_item(root, "NSString");
        auto content = textOrReferredText(string, objects);
        if (!content) {
            content = stringObjectText(referredObject(string, objects), objects);
        }
        if (!content) {
            return std::nullopt;
        }
        return repairedUTF8(*content);
    } catch (const std::bad_alloc&) {
        // Treat a text that does not fit into memory as unreadable.
        return std::nullopt;
    }
}

} // namespace tavrin::KeyedArchive
