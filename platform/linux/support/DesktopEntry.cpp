// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/support/DesktopEntry.h"

#include "core/Errors.h"

#include <QDir>
#include <QSaveFile>
#include <QString>

#include <fmt/format.h>

#include <cerrno>
#include <system_error>

namespace orvel {

namespace {

std::string replaced(std::string_view text, char character, std::string_view by) {
    std::string result;
    for (const char each : text) {
        if (each == character) {
            result.append(by);
        } else {
            result.push_back(each);
        }
    }
    return result;
}

/// Quotes one argument of a command.
std::string inQuotes(std::string_view text) {
    std::string word = replaced(text, '\\', R"(\\)");
    word = replaced(word, '"', R"(\")");
    word = replaced(word, '`', R"(\`)");
    word = replaced(word, '$', R"(\$)");
    return fmt::format("\"{}\"", word);
}

} // namespace

std::string desktopEntryValue(std::string_view text) {
    std::string value = replaced(text, '\\', R"(\\)");
    value = replaced(value, '\n', R"(\n)");
    value = replaced(value, '\r', R"(\r)");
    return replaced(value, '\t', R"(\t)");
}

std::string desktopEntryCommand(std::string_view program) {
    std::string command(program);
    // Quote only when necessary: some desktops treat quotes as part of the name.
    if (program.find_first_of(" \t\n\r\"'\\><~|&;$*?#()`") != std::string_view::npos) {
        command = inQuotes(command);
    }
    if (program.find('%') != std::string_view::npos) {
        // GLib checks that the program exists before it unescapes "%%", so run it through the
        // shell.
        command = fmt::format(
            "/bin/sh -c {} {}", inQuotes(R"(exec "$0" "$@")"), replaced(command, '%', "%%"));
    }
    return desktopEntryValue(command);
}

void writeDesktopEntry(const std::filesystem::path& file, std::string_view entry) {
    const auto fail = [&file](std::string_view reason) {
        return tavrin::PlatformError(
            std::string(tavrin::posixErrorDomain),
            EIO,
            fmt::format("Could not write {}: {}", file.string(), reason));
    };
    std::error_code error;
    std::filesystem::create_directories(file.parent_path(), error);
    if (error) {
        throw fail(error.message());
    }
    QSaveFile saved(QString::fromStdString(file.string()));
    if (!saved.open(QIODevice::WriteOnly) ||
        saved.write(entry.data(), static_cast<qint64>(entry.size())) < 0 || !saved.commit()) {
        throw fail(saved.errorString().toStdString());
    }
}

} // namespace orvel
