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
    /// Uses the folder named by the environment variable ORVEL_AGENT_BUNDLE, which contains
    /// "Info.plist" and the resources. Without the variable, uses the program's application bundle.
    /// A program outside a bundle uses the folder "resources" of the build folder. Throws
    /// `tavrin::PlatformError` if the property list cannot be read.
    [[nodiscard]] static std::unique_ptr<FoundationBundle> ofThisProgram();

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
