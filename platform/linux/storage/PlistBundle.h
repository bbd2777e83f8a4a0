// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Bundle.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace orvel {

/// A folder with the information property list, "Info.plist", and the resources.
class PlistBundle final : public Bundle {
public:
    /// Longer property lists and resources are rejected.
    static constexpr std::size_t maximumFileBytes = std::size_t{1} << 20U;

    /// The strings of a property list's top-level dictionary.
    using Information = std::map<std::string, std::string, std::less<>>;

    /// The folder in the environment variable "ORVEL_AGENT_BUNDLE", or else the one installed with
    /// this executable, or in a build tree the one built beside it.
    [[nodiscard]] static std::filesystem::path defaultFolder();

    /// Throws `tavrin::PlatformError` unless the text is a property list with a dictionary.
    [[nodiscard]] static Information parse(std::string_view propertyList);

    /// Throws `tavrin::PlatformError` when the folder has no readable property list.
    explicit PlistBundle(std::filesystem::path folder);

    [[nodiscard]] std::optional<std::string> infoString(std::string_view key) const override;
    [[nodiscard]] std::string identifier() const override;
    [[nodiscard]] std::optional<std::string>
    resource(std::string_view name, std::string_view extension) const override;

private:
    std::filesystem::path folder_;
    Information information_;
};

} // namespace orvel
