// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/LocalService.h"
#include "tests/support/Program.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/UpdateFolder.h"

#include <filesystem>
#include <memory>
#include <string>

namespace orvel::test {

/// A service with one update, for all seeds of a campaign.
class PublishedUpdate final {
public:
    PublishedUpdate();

    /// The options of a process that installs the update over this file.
    [[nodiscard]] Program::Options
    installer(const std::filesystem::path& appImage, const std::filesystem::path& downloads) const;

    [[nodiscard]] const std::string& update() const { return update_; }
    [[nodiscard]] std::filesystem::path certificates() const { return service_->caFile(); }

private:
    [[nodiscard]] std::filesystem::path bundle() const { return directory_ / "bundle"; }

    TemporaryDirectory directory_;
    UpdateFolder updates_{SIGN_UPDATE, directory_ / "updates"};
    std::string update_;
    std::unique_ptr<service::LocalService> service_;
};

} // namespace orvel::test
