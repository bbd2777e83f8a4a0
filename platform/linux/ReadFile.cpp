// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/ReadFile.h"

#include "core/Errors.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace orvel {

namespace {

class Descriptor final {
public:
    explicit Descriptor(const std::filesystem::path& path)
        // Non-blocking, or opening a pipe would wait for its writer.
        : value_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
    ~Descriptor() {
        if (value_ >= 0) {
            close(value_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    [[nodiscard]] int value() const { return value_; }

private:
    int value_;
};

} // namespace

std::string readFile(const std::filesystem::path& path, std::size_t limit) {
    const auto fail = [&path](int code) -> tavrin::PlatformError {
        return tavrin::PlatformError::fromErrno(code, "Could not read " + path.string());
    };
    const Descriptor file(path);
    struct stat status {};
    if (file.value() < 0 || fstat(file.value(), &status) != 0) {
        throw fail(errno);
    }
    if (!S_ISREG(status.st_mode)) {
        throw fail(S_ISDIR(status.st_mode) ? EISDIR : EINVAL);
    }
    std::string content;
    std::size_t length = 0;
    // One byte more than allowed tells a file that is too long from one that just fits.
    content.resize(limit + 1);
    while (length < content.size()) {
        const ssize_t count = read(file.value(), content.data() + length, content.size() - length);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            throw fail(errno);
        }
        if (count == 0) {
            break;
        }
        length += static_cast<std::size_t>(count);
    }
    if (length > limit) {
        throw fail(EFBIG);
    }
    content.resize(length);
    content.shrink_to_fit();
    return content;
}

} // namespace orvel
