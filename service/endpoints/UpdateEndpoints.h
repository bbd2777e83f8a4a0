// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string_view>

namespace orvel::service {

class Router;

/// The path of the feed, if the folder has a file of that name.
inline constexpr std::string_view updateFeedPath = "/updates/appcast.xml";

/// Serves the regular files of the folder, read for each request. No token is required, since
/// updates are signed. Hidden files, links and subfolders are not served.
void addUpdateEndpoints(Router& router, std::filesystem::path folder);

} // namespace orvel::service
