// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace tavrin {

/// The identifier of a person in Messages: a phone number as typed or received, or an e-mail
/// address.
class Handle final {
public:
    enum class Kind { Phone, Email };

    /// Trims white space. A text with an "@" is an e-mail address and is lower-cased. Any other
    /// text is a phone number and otherwise unchanged. Ill-formed UTF-8 is repaired.
    [[nodiscard]] static Handle classify(std::string_view raw);

    /// Uses both values unchanged.
    Handle(Kind kind, std::string raw) : kind_(kind), raw_(std::move(raw)) {}

    [[nodiscard]] Kind kind() const { return kind_; }
    [[nodiscard]] const std::string& raw() const { return raw_; }

    bool operator==(const Handle&) const = default;

private:
    Kind kind_;
    std::string raw_;
};

} // namespace tavrin
