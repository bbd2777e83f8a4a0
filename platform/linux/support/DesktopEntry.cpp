// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/support/DesktopEntry.h"

#include "core/Errors.h"
#include "core/ParentFolders.h"
#include "core/Text.h"
#include "core/WriteAccess.h"
#include "platform/linux/support/ReadFile.h"

#include <QByteArray>
#include <QFileDevice>
#include <QSaveFile>
#include <QString>

#include <fmt/format.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace orvel {

namespace {

/// Quotes one argument of a command.
QByteArray inQuotes(QByteArray text) {
    for (const char special : {'\\', '"', '`', '$'}) {
        text.replace(special, QByteArray(1, '\\') + special);
    }
    return '"' + text + '"';
}

/// Removes a file that cannot be overwritten, or whose permissions the new one would get. A failure
/// shows when the file is written.
void removeUnlessOurs(const std::filesystem::path& file) {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0 || S_ISDIR(status.st_mode)) {
        return;
    }
    const bool isOurs = S_ISREG(status.st_mode) && status.st_uid == geteuid() &&
                        (status.st_mode & S_IRUSR) != 0 && (status.st_mode & S_IWUSR) != 0 &&
                        !tavrin::canOthersWrite(status);
    if (!isOurs) {
        std::error_code error;
        std::filesystem::remove(file, error);
    }
}

} // namespace

void FreeKeyFile::operator()(_GKeyFile* keyFile) const {
    g_key_file_free(keyFile);
}

KeyFile readDesktopEntry(const std::filesystem::path& file) {
    constexpr std::size_t maximumBytes = std::size_t{64} << 10U;
    return parseDesktopEntry(readFile(file, maximumBytes));
}

KeyFile parseDesktopEntry(std::string_view entry) {
    KeyFile keys(g_key_file_new());
    const bool isValid =
        g_key_file_load_from_data(
            keys.get(), entry.data(), entry.size(), G_KEY_FILE_NONE, nullptr) != FALSE;
    return isValid ? std::move(keys) : nullptr;
}

std::optional<std::string> valueIn(const KeyFile& entry, const char* key) {
    const std::unique_ptr<char, decltype(&g_free)> value(
        g_key_file_get_string(entry.get(), G_KEY_FILE_DESKTOP_GROUP, key, nullptr), g_free);
    return value ? std::optional<std::string>(value.get()) : std::nullopt;
}

void checkProgramPath(const std::filesystem::path& program) {
    const std::string& path = program.native();
    const auto isControl = [](char byte) {
        return (byte >= 0 && byte < ' ') || byte == 0x7F;
    };
    if (std::ranges::any_of(path, isControl)) {
        throw tavrin::PlatformError(
            std::string(tavrin::posixErrorDomain),
            EINVAL,
            "The program's path contains a control character.");
    }
    if (!tavrin::isValidUTF8(path)) {
        throw tavrin::PlatformError::fromErrno(EILSEQ, "The program's path");
    }
}

std::string desktopEntryValue(std::string_view text) {
    // Readers skip white space before a value.
    const bool startsWithSpace = text.starts_with(' ');
    text.remove_prefix(startsWithSpace ? 1 : 0);
    return (startsWithSpace ? R"(\s)" : "") +
           QByteArray(text.data(), static_cast<qsizetype>(text.size()))
               .replace('\\', R"(\\)")
               .replace('\n', R"(\n)")
               .replace('\r', R"(\r)")
               .replace('\t', R"(\t)")
               .toStdString();
}

std::string desktopEntryCommand(std::string_view program) {
    QByteArray command(program.data(), static_cast<qsizetype>(program.size()));
    // Quote only when necessary: some desktops treat quotes as part of the name.
    if (program.find_first_of(" \t\n\r\"'\\><~|&;$*?#()`") != std::string_view::npos) {
        command = inQuotes(command);
    }
    if (command.contains('%')) {
        // GLib checks that the program exists before it unescapes "%%", so run it through the
        // shell.
        command = "/bin/sh -c " + inQuotes(R"(exec "$0" "$@")") + ' ' + command.replace('%', "%%");
    }
    return desktopEntryValue(command.toStdString());
}

void writeDesktopEntry(const std::filesystem::path& file, std::string_view entry) {
    const auto fail = [&file](std::string_view reason) {
        return tavrin::PlatformError(
            std::string(tavrin::posixErrorDomain),
            EIO,
            fmt::format("Could not write {}: {}", file.string(), reason));
    };
    // Not with the modes of a umask that lets others write: the desktop starts the entry's program.
    tavrin::createParentFolders(file);
    removeUnlessOurs(file);
    QSaveFile saved(QString::fromStdString(file.string()));
    if (!saved.open(QIODevice::WriteOnly) ||
        !saved.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner) ||
        saved.write(entry.data(), static_cast<qint64>(entry.size())) < 0 || !saved.commit()) {
        throw fail(saved.errorString().toStdString());
    }
}

} // namespace orvel
