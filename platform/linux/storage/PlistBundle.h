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

    /// The strings of a property list's top-level dictionary, as well-formed UTF-8.
    using Information = std::map<std::string, std::string, std::less<>>;

    /// The folder of this executable, with the environment variable "ORVEL_AGENT_BUNDLE".
    [[nodiscard]] static std::filesystem::path defaultFolder();

    /// The folder installed with the executable. In a build tree, the named one, or else the one
    /// built beside the executable. An installed agent does not use the named one, so that no other
    /// program can make it send its messages elsewhere.
    [[nodiscard]] static std::filesystem::path
    folderOf(const std::filesystem::path& executable, const std::filesystem::path& named);

    /// Throws `tavrin::PlatformError` unless the text is a property list with a dictionary.
    [[nodiscard]] static Information parse(std::string_view propertyList);

    /// Throws `tavrin::PlatformError` when the folder has no readable property list, or when other
    /// users may change the list, the folder or a folder above it (`canOthersChange`), but not this
    /// program.
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
