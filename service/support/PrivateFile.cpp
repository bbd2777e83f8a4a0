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

[[noreturn]] void
fail(const std::filesystem::path& path, std::error_code error = {errno, std::generic_category()}) {
    throw ServiceError(ServiceError::File{path.string(), error.message()});
}

int flags(PrivateFile::Mode mode) {
    const int common = O_WRONLY | O_CREAT | O_CLOEXEC;
    return common | (mode == PrivateFile::Mode::Append ? O_APPEND : O_TRUNC);
}

} // namespace

PrivateFile::PrivateFile(std::filesystem::path path, Mode mode)
    : path_(std::move(path)), descriptor_(open(path_.c_str(), flags(mode), S_IRUSR | S_IWUSR)) {
    // An existing file may have had another mode.
    if (!descriptor_.isOpen() || fchmod(descriptor_.get(), S_IRUSR | S_IWUSR) != 0) {
        fail(path_);
    }
}

void PrivateFile::write(std::string_view text) {
    while (!text.empty()) {
        const auto written = ::write(descriptor_.get(), text.data(), text.size());
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
