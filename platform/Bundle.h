// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"

#include <optional>
#include <string>
#include <string_view>

namespace orvel {

/// The application's resources. The constructor reads the property list. Thread-safe.
class Bundle : public tavrin::Interface {
public:
    /// The key's value in the information property list; no value unless it is a string.
    [[nodiscard]] virtual std::optional<std::string> infoString(std::string_view key) const = 0;

    /// "CFBundleIdentifier"; empty when the list has none.
    [[nodiscard]] virtual std::string identifier() const = 0;

    /// The content of a resource file, such as name "CHANGELOG" and extension "md"; no value when
    /// it is missing or unreadable.
    [[nodiscard]] virtual std::optional<std::string>
    resource(std::string_view name, std::string_view extension) const = 0;
};

} // namespace orvel
