// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string_view>

namespace orvel::service {

class Router;

/// Where the feed is, when the folder has a file of that name.
inline constexpr std::string_view updateFeedPath = "/updates/appcast.xml";

/// Serves the files of the folder, as they are when asked for, to everybody: an update proves
/// itself with its signature. Neither hidden files nor links nor what is in folders below.
void addUpdateEndpoints(Router& router, std::filesystem::path folder);

} // namespace orvel::service
