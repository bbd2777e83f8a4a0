// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/storage/KernelFileCopier.h"

#include "core/CancellationToken.h"
#include "core/FileDescriptor.h"
#include "core/FileErrors.h"
#include "core/RegularFile.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <string>
#include <utility>

namespace orvel {

namespace {

using tavrin::FileDescriptor;
using tavrin::PlatformError;

/// Cancellation is checked once per chunk.
constexpr off_t kernelChunk = off_t{16} << 20;
constexpr off_t bufferSize = off_t{256} << 10;

struct Transfer {
    const std::filesystem::path& source;
    const std::filesystem::path& destination;
    const tavrin::CancellationToken& cancellation;
    int from = -1;
    int to = -1;
    off_t size = 0;
    off_t offset = 0;
};

bool clone(const Transfer& transfer) {
    return ioctl(transfer.to, FICLONE, transfer.from) == 0;
}

/// Returns whether the copy is complete. Ignores the error: a real failure occurs again with the
/// next method.
bool copyInKernel(Transfer& transfer) {
    while (transfer.offset < transfer.size) {
        transfer.cancellation.throwIfCancelled();
        off_t in = transfer.offset;
        off_t out = transfer.offset;
        const off_t count = std::min(kernelChunk, transfer.size - transfer.offset);
        const ssize_t copied = copy_file_range(
            transfer.from, &in, transfer.to, &out, static_cast<std::size_t>(count), 0);
        if (copied < 0 && errno == EINTR) {
            continue;
        }
        // Some file systems return 0 before the end.
        if (copied <= 0) {
            return false;
        }
        transfer.offset += copied;
    }
    return true;
}

void readAndWrite(Transfer& transfer) {
    std::vector<std::byte> buffer(bufferSize);
    while (transfer.offset < transfer.size) {
        transfer.cancellation.throwIfCancelled();
        const off_t count = std::min(bufferSize, transfer.size - transfer.offset);
        const ssize_t read =
            pread(transfer.from, buffer.data(), static_cast<std::size_t>(count), transfer.offset);
        if (read == 0) {
            return;
        }
        if (read < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw PlatformError::fromErrno(errno, "Could not read " + transfer.source.string());
        }
        // After a short write, the rest is read again.
        const ssize_t written =
            pwrite(transfer.to, buffer.data(), static_cast<std::size_t>(read), transfer.offset);
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw tavrin::fileError(errno, "Could not write", transfer.destination);
        }
        transfer.offset += written;
    }
}

bool isSparse(const Transfer& transfer) {
    constexpr off_t blockSize = 512;
    struct stat status {};
    return fstat(transfer.from, &status) == 0 && status.st_blocks < transfer.size / blockSize;
}

void endWithHole(const Transfer& transfer) {
    // The source may have become shorter.
    const off_t end = std::min(transfer.size, lseek(transfer.from, 0, SEEK_END));
    if (ftruncate(transfer.to, end) != 0) {
        throw PlatformError::fromErrno(errno, "Could not write " + transfer.destination.string());
    }
}

/// Returns whether the copy is complete. If the file system does not tell where the data is,
/// another method continues.
bool copyDataOfSparseFile(Transfer& transfer) {
    if (!isSparse(transfer)) {
        return false;
    }
    while (transfer.offset < transfer.size) {
        const off_t data = lseek(transfer.from, transfer.offset, SEEK_DATA);
        if (data >= transfer.size || (data < 0 && errno == ENXIO)) {
            endWithHole(transfer);
            return true;
        }
        const off_t hole = data < 0 ? data : lseek(transfer.from, data, SEEK_HOLE);
        if (hole < 0) {
            return false;
        }
        Transfer part = transfer;
        part.offset = data;
        part.size = std::min(hole, transfer.size);
        if (!copyInKernel(part)) {
            readAndWrite(part);
        }
        if (part.offset < part.size) {
            // The source has become shorter.
            return true;
        }
        transfer.offset = part.offset;
    }
    return true;
}

void run(const std::vector<KernelFileCopier::Method>& methods, Transfer transfer) {
    for (const KernelFileCopier::Method method : methods) {
        switch (method) {
        case KernelFileCopier::Method::Clone:
            if (clone(transfer)) {
                return;
            }
            break;
        case KernelFileCopier::Method::CopyDataOfSparseFile:
            if (copyDataOfSparseFile(transfer)) {
                return;
            }
            break;
        case KernelFileCopier::Method::CopyInKernel:
            if (copyInKernel(transfer)) {
                return;
            }
            break;
        case KernelFileCopier::Method::ReadAndWrite:
            readAndWrite(transfer);
            return;
        }
    }
    throw tavrin::fileError(EOPNOTSUPP, "Could not write", transfer.destination);
}

} // namespace

KernelFileCopier::KernelFileCopier(std::vector<Method> methods) : methods_(std::move(methods)) {}

void KernelFileCopier::copy(
    const std::filesystem::path& source,
    const std::filesystem::path& destination,
    const tavrin::CancellationToken& cancellation) {
    cancellation.throwIfCancelled();
    const tavrin::RegularFile from = tavrin::openRegularFile(source);
    FileDescriptor to(open(destination.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!to.isOpen()) {
        throw tavrin::fileError(errno, "Could not create", destination);
    }
    try {
        run(methods_,
            {source, destination, cancellation, from.descriptor.get(), to.get(), from.size});
        // Remote file systems may report failed writes at close.
        if (close(to.release()) != 0 && errno != EINTR) {
            throw tavrin::fileError(errno, "Could not write", destination);
        }
    } catch (...) {
        unlink(destination.c_str());
        throw;
    }
}

} // namespace orvel
