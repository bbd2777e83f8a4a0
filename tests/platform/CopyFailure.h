// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/CancellationToken.h"
#include "core/Errors.h"
#include "core/messages/FileCopier.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>

namespace orvel::test {

/// Copies the file. Returns the error code, or nothing on success.
inline std::optional<int> copyFailure(
    tavrin::FileCopier& copier,
    const std::filesystem::path& source,
    const std::filesystem::path& destination) {
    try {
        copier.copy(source, destination, tavrin::CancellationToken());
        return std::nullopt;
    } catch (const tavrin::PlatformError& error) {
        EXPECT_EQ(error.domain(), tavrin::posixErrorDomain);
        return error.code();
    }
}

} // namespace orvel::test
