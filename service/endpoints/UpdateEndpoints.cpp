// SPDX-License-Identifier: Apache-2.0
#include "core/FileDescriptor.h"
#include "service/endpoints/Endpoints.h"
#include "service/endpoints/Router.h"
#include "service/http/Envelope.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace orvel::service {

namespace {

using tavrin::FileDescriptor;

constexpr std::string_view everyFile = "/updates/*";

/// Null unless the folder itself contains a regular file of that name.
std::shared_ptr<FileDescriptor>
opened(const std::filesystem::path& folder, const std::string& name, struct stat& status) {
    // The system call would cut the name at a zero byte and open another file.
    if (name.empty() || name.starts_with('.') || name.find('\0') != std::string::npos) {
        return nullptr;
    }
    // Without O_NONBLOCK, opening a pipe would block.
    auto file = std::make_shared<FileDescriptor>(
        open((folder / name).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file->isOpen() || fstat(file->get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return nullptr;
    }
    return file;
}

} // namespace

void addUpdateEndpoints(Router& router, std::filesystem::path folder) {
    const auto serve = [folder = std::move(folder)](const Request& request) {
        // The router's wildcard never matches a slash, so this is a plain file name.
        struct stat status {};
        auto file = opened(folder, request.path.substr(everyFile.size() - 1), status);
        if (!file) {
            throw Refusal(404, "not_found", "There is nothing at this path.");
        }
        const bool isFeed = request.path == updateFeedPath;
        return Reply{
            .contentType = isFeed ? "application/xml" : "application/octet-stream",
            .file = std::move(file),
            .fileSize = static_cast<std::uint64_t>(status.st_size)};
    };
    router.add("GET", std::string(updateFeedPath), Router::Access::Open, serve);
    router.add("GET", std::string(everyFile), Router::Access::Open, serve);
}

} // namespace orvel::service
