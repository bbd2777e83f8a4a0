// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/app/Permissions.h"

#include "core/FileDescriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <utility>

namespace orvel::Permissions {

bool hasFullDiskAccess(const std::filesystem::path& database) {
    // By its bytes: a name that is no UTF-8 does not survive Qt's strings.
    const tavrin::FileDescriptor file(::open(database.c_str(), O_RDONLY | O_CLOEXEC));
    char byte = 0;
    return file.isOpen() && ::read(file.get(), &byte, 1) >= 0;
}

QCoro::Task<bool> probeFullDiskAccess(Worker* worker, std::filesystem::path database) {
    auto probe = [database = std::move(database)] {
        return hasFullDiskAccess(database);
    };
    co_return co_await worker->run(std::move(probe));
}

} // namespace orvel::Permissions
