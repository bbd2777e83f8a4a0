// SPDX-License-Identifier: Apache-2.0
#include "core/JSON.h"

#include <boost/json.hpp>

#include <utility>

namespace tavrin {

namespace {

namespace json = boost::json;

[[noreturn]] void failAt(std::string_view key, std::string_view problem) {
    throw JSONDecodingError(
        "The JSON key \"" + std::string(key) + "\" " + std::string(problem) + ".");
}

const json::value& valueAt(const json::object& object, std::string_view key) {
    const json::value* value = object.if_contains(key);
    if (value == nullptr) {
        failAt(key, "is missing");
    }
    return *value;
}

/// Null if the key is missing or its value is null.
const json::value* presentValueAt(const json::object& object, std::string_view key) {
    const json::value* value = object.if_contains(key);
    return value == nullptr || value->is_null() ? nullptr : value;
}

std::int64_t integer(const json::value& value, std::string_view key) {
    json::error_code error;
    const auto number = value.to_number<std::int64_t>(error);
    if (error) {
        failAt(key, "is not an integer");
    }
    return number;
}

} // namespace

const json::object& asObject(const json::value& value) {
    const json::object* object = value.if_object();
    if (object == nullptr) {
        throw JSONDecodingError("The JSON value is not an object.");
    }
    return *object;
}

std::string asString(const json::value& value, std::string_view key) {
    const json::string* text = value.if_string();
    if (text == nullptr) {
        failAt(key, "is not a string");
    }
    return {text->data(), text->size()};
}

std::vector<std::string> asStrings(const json::value& value, std::string_view key) {
    const json::array* array = value.if_array();
    if (array == nullptr) {
        failAt(key, "is not an array of strings");
    }
    std::vector<std::string> strings;
    strings.reserve(array->size());
    for (const json::value& element : *array) {
        const json::string* text = element.if_string();
        if (text == nullptr) {
            failAt(key, "is not an array of strings");
        }
        strings.emplace_back(text->data(), text->size());
    }
    return strings;
}

std::string stringAt(const json::object& object, std::string_view key) {
    return asString(valueAt(object, key), key);
}

std::int64_t integerAt(const json::object& object, std::string_view key) {
    return integer(valueAt(object, key), key);
}

bool booleanAt(const json::object& object, std::string_view key) {
    const bool* value = valueAt(object, key).if_bool();
    if (value == nullptr) {
        failAt(key, "is not a boolean");
    }
    return *value;
}

std::vector<std::string> stringsAt(const json::object& object, std::string_view key) {
    return asStrings(valueAt(object, key), key);
}

const json::object& objectAt(const json::object& object, std::string_view key) {
    const json::object* value = valueAt(object, key).if_object();
    if (value == nullptr) {
        failAt(key, "is not an object");
    }
    return *value;
}

std::optional<std::string> optionalStringAt(const json::object& object, std::string_view key) {
    const json::value* value = presentValueAt(object, key);
    return value == nullptr ? std::nullopt : std::optional(asString(*value, key));
}

std::optional<std::int64_t> optionalIntegerAt(const json::object& object, std::string_view key) {
    const json::value* value = presentValueAt(object, key);
    return value == nullptr ? std::nullopt : std::optional(integer(*value, key));
}

} // namespace tavrin
