// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/json/fwd.hpp>

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Strict readers for JSON objects from external sources. They throw `JSONDecodingError` if the key
/// is missing or its value has the wrong type. The optional forms return no value if the key is
/// missing or null.
namespace tavrin {

/// JSON of an unexpected shape. `what()` names the key and the problem, but never contains a value.
class JSONDecodingError final : public std::exception {
public:
    explicit JSONDecodingError(std::string description) : description_(std::move(description)) {}

    [[nodiscard]] const char* what() const noexcept override { return description_.c_str(); }

private:
    std::string description_;
};

[[nodiscard]] const boost::json::object& asObject(const boost::json::value& json);
/// The error names `key` instead of the real key, which may be personal data.
[[nodiscard]] std::string asString(const boost::json::value& json, std::string_view key);
[[nodiscard]] std::vector<std::string>
asStrings(const boost::json::value& json, std::string_view key);

[[nodiscard]] std::string stringAt(const boost::json::object& object, std::string_view key);
/// Numbers with a fraction or beyond 64 bits have the wrong type. 5.0 has no fraction.
[[nodiscard]] std::int64_t integerAt(const boost::json::object& object, std::string_view key);
[[nodiscard]] bool booleanAt(const boost::json::object& object, std::string_view key);
[[nodiscard]] std::vector<std::string>
stringsAt(const boost::json::object& object, std::string_view key);
[[nodiscard]] const boost::json::object&
objectAt(const boost::json::object& object, std::string_view key);

[[nodiscard]] std::optional<std::string>
optionalStringAt(const boost::json::object& object, std::string_view key);
[[nodiscard]] std::optional<std::int64_t>
optionalIntegerAt(const boost::json::object& object, std::string_view key);

} // namespace tavrin
