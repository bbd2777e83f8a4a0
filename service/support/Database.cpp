// SPDX-License-Identifier: Apache-2.0
#include "service/support/Database.h"

#include "service/support/PrivateFile.h"

namespace orvel::service {

Database::Database(const std::filesystem::path& file) : path_(file.string()) {
    makePrivateDirectory(std::filesystem::absolute(file).parent_path());
    // SQLite would create a file that everyone can read. Its journals copy the mode of the file.
    static_cast<void>(PrivateFile(file, PrivateFile::Mode::Append));
    // Another program may be reading the file.
    constexpr int busyTimeoutMilliseconds = 5000;
    connection_ = translated([&] {
        return std::make_unique<SQLite::Database>(
            path_, SQLite::OPEN_READWRITE | SQLite::OPEN_NOMUTEX, busyTimeoutMilliseconds);
    });
}

} // namespace orvel::service
