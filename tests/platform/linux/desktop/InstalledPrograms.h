// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tests/support/TemporaryDirectory.h"

#include <QByteArray>
#include <QtGlobal>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace orvel::test {

/// A folder of scripts that record their arguments. The first `install` makes it the whole PATH.
class InstalledPrograms final {
public:
    InstalledPrograms() = default;
    ~InstalledPrograms() { qputenv("PATH", previousPath_); }
    InstalledPrograms(const InstalledPrograms&) = delete;
    InstalledPrograms& operator=(const InstalledPrograms&) = delete;

    /// Returns the program's file.
    std::filesystem::path install(const std::string& name, int status = 0) {
        const std::filesystem::path program = folder_ / "bin" / name;
        std::filesystem::create_directories(program.parent_path());
        std::ofstream(program) << "#!/bin/sh\nprintf '%s\\n' \"${0##*/} $*\" >>"
                               << (folder_ / "ran") << "\nexit " << status << '\n';
        std::filesystem::permissions(program, std::filesystem::perms::owner_all);
        qputenv("PATH", QByteArray::fromStdString(program.parent_path().string()));
        return program;
    }

    /// One line for each program run.
    [[nodiscard]] std::string ran() const {
        std::ifstream file(folder_ / "ran", std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    TemporaryDirectory folder_;
    QByteArray previousPath_ = qgetenv("PATH");
};

} // namespace orvel::test
