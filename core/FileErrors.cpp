// SPDX-License-Identifier: Apache-2.0
#include "core/FileErrors.h"

#include <cerrno>
#include <string>
#include <system_error>

namespace tavrin {

namespace {

std::string_view remedy(int code) {
    switch (code) {
    case ENOSPC:
        return "Free some space on this disk, then try again.";
    case EDQUOT:
        return "Delete files that you do not need, or ask for a larger quota, then try again.";
    case EROFS:
        return "Make the disk writable, or choose another folder.";
    case EACCES:
    case EPERM:
        return "Change the permissions of the folder, then try again.";
    case ENOENT:
    case ENOTDIR:
        return "Make the folder again, then try again.";
    case EMFILE:
    case ENFILE:
        return "Close other programs, then try again.";
    case EIO:
        return "Check the disk, then try again.";
    default:
        return "Try again.";
    }
}

} // namespace

PlatformError fileError(int code, std::string_view doing, const std::filesystem::path& path) {
    std::string text(doing);
    text += ' ';
    text += path.string();
    text += ": ";
    text += std::generic_category().message(code);
    text += ". ";
    text += remedy(code);
    return {std::string(posixErrorDomain), code, text};
}

} // namespace tavrin
