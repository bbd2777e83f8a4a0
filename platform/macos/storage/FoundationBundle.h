// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Bundle.h"

#import <Foundation/Foundation.h>

#include <filesystem>
#include <memory>

namespace orvel {

NS_ASSUME_NONNULL_BEGIN

/// The information dictionary and the resources of a program.
class FoundationBundle final : public Bundle {
public:
    /// The bundle of this program, with the environment variable ORVEL_AGENT_BUNDLE.
    [[nodiscard]] static std::unique_ptr<FoundationBundle> ofThisProgram();

    /// Uses the application bundle. A program outside a bundle uses the named folder, which
    /// contains "Info.plist" and the resources, or else the folder "resources" of the build folder.
    /// An application does not use the named one, so that no other program can use its permissions.
    /// Throws `tavrin::PlatformError` if the property list cannot be read.
    [[nodiscard]] static std::unique_ptr<FoundationBundle>
    ofProgram(NSBundle* main, const std::filesystem::path& named);

    /// `folder` contains "Info.plist" and the resources.
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
