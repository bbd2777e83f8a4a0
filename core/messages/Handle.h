// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace tavrin {

/// What Messages identifies a person by: a phone number as it was typed or received, or an e-mail
/// address.
class Handle final {
public:
    enum class Kind { Phone, Email };

    /// Trims white space; a text with an "@" anywhere is an e-mail address and is lower-cased,
    /// anything else is a phone number and stays as it is. Ill-formed UTF-8 is repaired.
    [[nodiscard]] static Handle classify(std::string_view raw);

    /// The parts as they stand.
    Handle(Kind kind, std::string raw) : kind_(kind), raw_(std::move(raw)) {}

    [[nodiscard]] Kind kind() const { return kind_; }
    [[nodiscard]] const std::string& raw() const { return raw_; }

    bool operator==(const Handle&) const = default;

private:
    Kind kind_;
    std::string raw_;
};

} // namespace tavrin
