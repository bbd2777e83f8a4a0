// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/UpdateInstallation.h"

#include <algorithm>
#include <cstdlib>
#include <system_error>
#include <utility>

namespace orvel {

namespace {

std::filesystem::path variable(const char* name) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in this process writes the environment
    const char* const value = std::getenv(name);
    return value == nullptr ? std::filesystem::path() : std::filesystem::path(value);
}

bool isBelow(const std::filesystem::path& path, const std::filesystem::path& folder) {
    const auto [end, rest] = std::ranges::mismatch(folder, path);
    return end == folder.end() && rest != path.end();
}

} // namespace

UpdateInstallation::Traces UpdateInstallation::traces() {
    std::error_code ignored;
    return {
        std::filesystem::read_symlink("/proc/self/exe", ignored),
        variable("APPIMAGE"),
        variable("APPDIR")};
}

UpdateInstallation::UpdateInstallation(const Traces& traces, std::filesystem::path packageFolder)
    : path_(std::move(packageFolder)) {
    if (traces.appImage.empty() || traces.appDir.empty()) {
        return;
    }
    std::error_code error;
    // The file itself is to be replaced, not a link to it.
    std::filesystem::path appImage = std::filesystem::canonical(traces.appImage, error);
    if (error || !std::filesystem::is_regular_file(appImage, error)) {
        return;
    }
    const std::filesystem::path appDir = std::filesystem::canonical(traces.appDir, error);
    if (!error && isBelow(traces.executable, appDir)) {
        kind_ = Kind::AppImage;
        path_ = std::move(appImage);
    }
}

std::string_view UpdateInstallation::type() const {
    return kind_ == Kind::AppImage ? "application/vnd.appimage"
                                   : "application/vnd.debian.binary-package";
}

std::filesystem::path UpdateInstallation::place(std::string_view version) const {
    return kind_ == Kind::AppImage ? path_
                                   : path_ / ("orvel-agent-" + std::string(version) + ".deb");
}

} // namespace orvel
