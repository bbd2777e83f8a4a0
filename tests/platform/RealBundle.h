// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Bundle.h"

#include <filesystem>
#include <memory>

namespace orvel::test {

/// A bundle in a folder with an "Info.plist" and resources.
[[nodiscard]] std::unique_ptr<Bundle> makeRealBundle(const std::filesystem::path& folder);

/// The bundle of a program in the build folder.
[[nodiscard]] std::unique_ptr<Bundle> makeRealBundleOfThisProgram();

} // namespace orvel::test
