// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/Permissions.h"

#include <QFile>
#include <QString>

#include <utility>

namespace orvel::Permissions {

bool hasFullDiskAccess(const std::filesystem::path& database) {
    QFile file(QString::fromStdString(database.string()));
    char byte = 0;
    return file.open(QIODevice::ReadOnly | QIODevice::Unbuffered) && file.read(&byte, 1) >= 0;
}

QCoro::Task<bool> probeFullDiskAccess(Worker* worker, std::filesystem::path database) {
    auto probe = [database = std::move(database)] {
        return hasFullDiskAccess(database);
    };
    co_return co_await worker->run(std::move(probe));
}

} // namespace orvel::Permissions
