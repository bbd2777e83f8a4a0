// SPDX-License-Identifier: Apache-2.0
#include "service/support/PrivateFile.h"

#include "service/support/ServiceError.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace orvel::service {

namespace {

[[noreturn]] void fail(const std::filesystem::path& path, const std::error_code& error) {
    throw ServiceError(ServiceError::File{path.string(), error.message()});
}

[[noreturn]] void fail(const std::filesystem::path& path) {
    fail(path, std::error_code(errno, std::generic_category()));
}

int flags(PrivateFile::Mode mode) {
    const int common = O_WRONLY | O_CREAT | O_CLOEXEC;
    return common | (mode == PrivateFile::Mode::Append ? O_APPEND : O_TRUNC);
}

} // namespace

PrivateFile::PrivateFile(std::filesystem::path path, Mode mode)
    : path_(std::move(path)), descriptor_(open(path_.c_str(), flags(mode), S_IRUSR | S_IWUSR)) {
    if (descriptor_ < 0) {
        fail(path_);
    }
    // An existing file may have had another mode.
    if (fchmod(descriptor_, S_IRUSR | S_IWUSR) != 0) {
        const int reason = errno;
        close(descriptor_);
        errno = reason;
        fail(path_);
    }
}

PrivateFile::~PrivateFile() {
    close(descriptor_);
}

void PrivateFile::write(std::string_view text) {
    while (!text.empty()) {
        const auto written = ::write(descriptor_, text.data(), text.size());
        if (written < 0) {
            fail(path_);
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

void replacePrivateFile(const std::filesystem::path& file, std::string_view content) {
    const auto temporary = file.string() + ".new";
    PrivateFile(temporary, PrivateFile::Mode::Replace).write(content);
    std::error_code error;
    std::filesystem::rename(temporary, file, error);
    if (error) {
        fail(file, error);
    }
}

void makePrivateDirectory(const std::filesystem::path& directory) {
    std::error_code error;
    if (std::filesystem::create_directories(directory, error)) {
        std::filesystem::permissions(directory, std::filesystem::perms::owner_all, error);
    }
    if (error) {
        fail(directory, error);
    }
}

} // namespace orvel::service
