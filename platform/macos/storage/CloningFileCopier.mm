// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/storage/CloningFileCopier.h"

#include "core/CancellationToken.h"
#include "core/Errors.h"
#include "core/FileDescriptor.h"
#include "core/RegularFile.h"

#include <copyfile.h>
#include <fcntl.h>
#include <sys/clonefile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>
#include <type_traits>

namespace orvel {

namespace {

using tavrin::FileDescriptor;
using tavrin::PlatformError;

struct FreeState {
    void operator()(copyfile_state_t state) const { copyfile_state_free(state); }
};
using CopyState = std::unique_ptr<std::remove_pointer_t<copyfile_state_t>, FreeState>;

int quitIfCancelled(
    int what, int stage, copyfile_state_t, const char*, const char*, void* cancellation) {
    const bool isProgress = what == COPYFILE_COPY_DATA && stage == COPYFILE_PROGRESS;
    return isProgress && static_cast<const tavrin::CancellationToken*>(cancellation)->isCancelled()
               ? COPYFILE_QUIT
               : COPYFILE_CONTINUE;
}

/// Removes an incomplete destination that we created.
class Destination final {
public:
    explicit Destination(const std::filesystem::path& path) : path_(path) {}
    ~Destination() {
        if (!isComplete_) {
            unlink(path_.c_str());
        }
    }
    Destination(const Destination&) = delete;
    Destination& operator=(const Destination&) = delete;

    void markComplete() { isComplete_ = true; }

private:
    const std::filesystem::path& path_;
    bool isComplete_ = false;
};

/// Returns false if the file system cannot clone. The clone first has the source's mode, so the
/// caller's directory must be private.
bool clone(const FileDescriptor& from, const std::filesystem::path& destination) {
    if (fclonefileat(from.get(), AT_FDCWD, destination.c_str(), CLONE_NOOWNERCOPY) != 0) {
        if (errno == EEXIST) {
            throw PlatformError::fromErrno(errno, "Could not create " + destination.string());
        }
        // Any other failure will also occur when copying the bytes.
        return false;
    }
    Destination made(destination);
    if (chmod(destination.c_str(), S_IRUSR | S_IWUSR) != 0) {
        throw PlatformError::fromErrno(errno, "Could not write " + destination.string());
    }
    made.markComplete();
    return true;
}

void copyBytes(
    const FileDescriptor& from,
    const std::filesystem::path& destination,
    const tavrin::CancellationToken& cancellation) {
    FileDescriptor to(
        open(destination.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!to.isOpen()) {
        throw PlatformError::fromErrno(errno, "Could not create " + destination.string());
    }
    Destination made(destination);
    const CopyState state(copyfile_state_alloc());
    copyfile_state_set(
        state.get(), COPYFILE_STATE_STATUS_CB, reinterpret_cast<const void*>(&quitIfCancelled));
    copyfile_state_set(state.get(), COPYFILE_STATE_STATUS_CTX, &cancellation);
    const bool isCopied = fcopyfile(from.get(), to.get(), state.get(), COPYFILE_DATA) == 0;
    const int error = errno;
    cancellation.throwIfCancelled();
    if (!isCopied) {
        throw PlatformError::fromErrno(error, "Could not write " + destination.string());
    }
    // A remote file system may report failed writes only when closing.
    if (close(to.release()) != 0 && errno != EINTR) {
        throw PlatformError::fromErrno(errno, "Could not write " + destination.string());
    }
    made.markComplete();
}

} // namespace

void CloningFileCopier::copy(
    const std::filesystem::path& source,
    const std::filesystem::path& destination,
    const tavrin::CancellationToken& cancellation) {
    cancellation.throwIfCancelled();
    const tavrin::RegularFile from = tavrin::openRegularFile(source);
    if (!clone(from.descriptor, destination)) {
        copyBytes(from.descriptor, destination, cancellation);
    }
}

} // namespace orvel
