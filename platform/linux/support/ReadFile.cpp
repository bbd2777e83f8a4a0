// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/support/ReadFile.h"

#include "core/Errors.h"
#include "core/RegularFile.h"

#include <unistd.h>

#include <cerrno>

namespace orvel {

std::size_t readStart(int file, std::span<std::byte> buffer, const std::string& whatFailed) {
    std::size_t length = 0;
    while (length < buffer.size()) {
        const ssize_t count =
            pread(file, buffer.data() + length, buffer.size() - length, static_cast<off_t>(length));
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            throw tavrin::PlatformError::fromErrno(errno, whatFailed);
        }
        if (count == 0) {
            break;
        }
        length += static_cast<std::size_t>(count);
    }
    return length;
}

std::string readFile(const std::filesystem::path& path, std::size_t limit) {
    const std::string whatFailed = "Could not read " + path.string();
    const tavrin::FileDescriptor file = tavrin::openRegularFile(path).descriptor;
    // One byte beyond the limit, to detect a file that is too long.
    std::string content(limit + 1, '\0');
    content.resize(readStart(file.get(), std::as_writable_bytes(std::span(content)), whatFailed));
    if (content.size() > limit) {
        throw tavrin::PlatformError::fromErrno(EFBIG, whatFailed);
    }
    content.shrink_to_fit();
    return content;
}

} // namespace orvel
