// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Bundle.h"

#import <Foundation/Foundation.h>

#include <filesystem>
#include <memory>

namespace orvel {

NS_ASSUME_NONNULL_BEGIN

/// The information dictionary and the resources that belong to a program.
class FoundationBundle final : public Bundle {
public:
    /// The folder that the environment variable ORVEL_AGENT_BUNDLE names, with an "Info.plist" and
    /// the resources side by side; or else the application bundle that the program is in; or else,
    /// for a program of the build folder that is in none, the build folder's "resources". Throws
    /// `tavrin::PlatformError` when there is no property list that can be read.
    [[nodiscard]] static std::unique_ptr<FoundationBundle> ofThisProgram();

    /// A folder as above.
    explicit FoundationBundle(const std::filesystem::path& folder);
    explicit FoundationBundle(NSBundle* bundle);

    [[nodiscard]] std::optional<std::string> infoString(std::string_view key) const override;
    [[nodiscard]] std::string identifier() const override;
    [[nodiscard]] std::optional<std::string>
    resource(std::string_view name, std::string_view extension) const override;

    [[nodiscard]] std::filesystem::path resourceFolder() const;

private:
    NSDictionary<NSString*, id>* information_;
    NSURL* resources_;
};

NS_ASSUME_NONNULL_END

} // namespace orvel
