// SPDX-License-Identifier: Apache-2.0
#include "service/support/PrivateFile.h"

#include "core/WriteAccess.h"
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
    // Without O_NONBLOCK, opening a pipe would block.
    const int common = O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    return common | (mode == PrivateFile::Mode::Append ? O_APPEND : 0);
}

[[noreturn]] void refuse(const std::filesystem::path& path, const char* reason) {
    throw ServiceError(ServiceError::File{path.string(), reason});
}

/// In a folder that others can write to, they could have put something else at the path: their own
/// file, which they can read, or a second name of another file of this user.
void requireOwnFile(const std::filesystem::path& path, int descriptor) {
    struct stat status {};
    if (fstat(descriptor, &status) != 0) {
        fail(path);
    }
    if (!S_ISREG(status.st_mode)) {
        refuse(path, "it is not a file");
    }
    if (status.st_uid != geteuid() || status.st_nlink != 1) {
        refuse(path, "it may belong to another user");
    }
}

} // namespace

PrivateFile::PrivateFile(std::filesystem::path path, Mode mode)
    : path_(std::move(path)), descriptor_(open(path_.c_str(), flags(mode), S_IRUSR | S_IWUSR)) {
    if (!descriptor_.isOpen()) {
        fail(path_);
    }
    requireOwnFile(path_, descriptor_.get());
    // An existing file may have had another mode.
    if (fchmod(descriptor_.get(), S_IRUSR | S_IWUSR) != 0 ||
        (mode == Mode::Replace && ftruncate(descriptor_.get(), 0) != 0)) {
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
    struct stat status {};
    if (stat(directory.c_str(), &status) != 0) {
        fail(directory);
    }
    if (tavrin::canOthersWrite(status)) {
        const bool isForGroupOnly =
            status.st_uid == geteuid() && (status.st_mode & (S_IWGRP | S_IWOTH)) == S_IWGRP;
        refuse(
            directory,
            isForGroupOnly ? "its group may change its files; remove that right with chmod g-w"
                           : "other users may change its files");
    }
}

} // namespace orvel::service
