// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/support/ReadFile.h"

#include "core/Errors.h"
#include "core/RegularFile.h"

#include <unistd.h>

#include <cerrno>

namespace orvel {

std::string readFile(const std::filesystem::path& path, std::size_t limit) {
    const auto failure = [&path](int code) {
        return tavrin::PlatformError::fromErrno(code, "Could not read " + path.string());
    };
    const tavrin::FileDescriptor file = tavrin::openRegularFile(path).descriptor;
    std::string content;
    std::size_t length = 0;
    // Read one byte beyond the limit to detect a file that is too long.
    content.resize(limit + 1);
    while (length < content.size()) {
        const ssize_t count = read(file.get(), content.data() + length, content.size() - length);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            throw failure(errno);
        }
        if (count == 0) {
            break;
        }
        length += static_cast<std::size_t>(count);
    }
    if (length > limit) {
        throw failure(EFBIG);
    }
    content.resize(length);
    content.shrink_to_fit();
    return content;
}

} // namespace orvel
