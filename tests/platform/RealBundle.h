// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Bundle.h"

#include <filesystem>
#include <memory>

namespace orvel::test {

/// This system's bundle in a folder with an "Info.plist" and the resources side by side.
[[nodiscard]] std::unique_ptr<Bundle> makeRealBundle(const std::filesystem::path& folder);

/// That of a program in the build folder.
[[nodiscard]] std::unique_ptr<Bundle> makeRealBundleOfThisProgram();

} // namespace orvel::test
