// SPDX-License-Identifier: Apache-2.0
#include "core/FileDescriptor.h"
#include "service/endpoints/Endpoints.h"
#include "service/endpoints/Router.h"
#include "service/http/Envelope.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

namespace orvel::service {

namespace {

using tavrin::FileDescriptor;

constexpr std::string_view everyFile = "/updates/*";

/// No value unless the folder itself contains a regular file of that name.
std::optional<std::string> content(const std::filesystem::path& folder, const std::string& name) {
    // The system call would cut the name at a zero byte and open another file.
    if (name.empty() || name.starts_with('.') || name.find('\0') != std::string::npos) {
        return std::nullopt;
    }
    // Without O_NONBLOCK, opening a pipe would block.
    FileDescriptor file(
        open((folder / name).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!file.isOpen() || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
    std::FILE* const opened = fdopen(file.get(), "r");
    if (opened == nullptr) {
        throw std::system_error(errno, std::generic_category(), "Could not read the update");
    }
    static_cast<void>(file.release());
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(opened, std::fclose);
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), stream.get()));
    if (std::ferror(stream.get()) != 0) {
        throw std::system_error(errno, std::generic_category(), "Could not read the update");
    }
    return bytes;
}

} // namespace

void addUpdateEndpoints(Router& router, std::filesystem::path folder) {
    const auto serve = [folder = std::move(folder)](const Request& request) {
        // The router's wildcard never matches a slash, so this is a plain file name.
        auto bytes = content(folder, request.path.substr(everyFile.size() - 1));
        if (!bytes) {
            throw Refusal(404, "not_found", "There is nothing at this path.");
        }
        const bool isFeed = request.path == updateFeedPath;
        return Reply{
            .contentType = isFeed ? "application/xml" : "application/octet-stream",
            .body = std::move(*bytes)};
    };
    router.add("GET", std::string(updateFeedPath), Router::Access::Open, serve);
    router.add("GET", std::string(everyFile), Router::Access::Open, serve);
}

} // namespace orvel::service
