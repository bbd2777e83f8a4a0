// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/AutostartLoginItem.h"

#include "core/WriteAccess.h"
#include "platform/linux/support/DesktopEntry.h"

#include <QStandardPaths>
#include <QString>

#include <fmt/format.h>
#include <glib.h>
#include <sys/stat.h>

#include <cerrno>
#include <string_view>
#include <utility>

namespace orvel {

namespace {

void writeEntry(const std::filesystem::path& file, const AutostartLoginItem::Options& options) {
    const std::string& program = options.program.native();
    checkProgramPath(program);
    constexpr std::string_view entry = "[Desktop Entry]\n"
                                       "Type=Application\n"
                                       "Name={}\n"
                                       "Icon={}\n"
                                       "TryExec={}\n"
                                       "Exec={}\n"
                                       "StartupNotify=false\n"
                                       "X-GNOME-Autostart-enabled=true\n";
    writeDesktopEntry(
        file,
        fmt::format(
            entry,
            desktopEntryValue(options.displayName),
            desktopEntryValue(options.identifier),
            desktopEntryValue(program),
            desktopEntryCommand(program)));
}

void removeEntry(const std::filesystem::path& file) {
    std::error_code error;
    std::filesystem::remove(file, error);
    if (error) {
        throw tavrin::PlatformError::fromErrno(
            error.value(), fmt::format("Could not remove {}", file.string()));
    }
}

LoginItem::Status statusOf(const std::filesystem::path& file) {
    KeyFile keys;
    try {
        keys = readDesktopEntry(file);
    } catch (const tavrin::PlatformError& error) {
        if (error.code() == ENOENT) {
            return LoginItem::Status::NotRegistered;
        }
        throw;
    }
    if (!keys) {
        // The desktop ignores an invalid entry.
        return LoginItem::Status::Disabled;
    }
    constexpr auto group = G_KEY_FILE_DESKTOP_GROUP;
    constexpr auto switchKey = "X-GNOME-Autostart-enabled";
    const bool isSwitchedOff =
        g_key_file_has_key(keys.get(), group, switchKey, nullptr) != FALSE &&
        g_key_file_get_boolean(keys.get(), group, switchKey, nullptr) == FALSE;
    const bool isHidden =
        g_key_file_get_boolean(keys.get(), group, G_KEY_FILE_DESKTOP_KEY_HIDDEN, nullptr) != FALSE;
    return isHidden || isSwitchedOff ? LoginItem::Status::Disabled : LoginItem::Status::Enabled;
}

/// Whether the entry names a program that is gone, such as the agent at its earlier place. Without
/// a name, the entry is the user's own.
bool isProgramGone(const std::filesystem::path& file) {
    const KeyFile keys = readDesktopEntry(file);
    const auto program = keys ? valueIn(keys, G_KEY_FILE_DESKTOP_KEY_TRY_EXEC) : std::nullopt;
    return program && QStandardPaths::findExecutable(QString::fromStdString(*program)).isEmpty();
}

/// The desktop would start the program that another user names in the entry.
bool mayOthersHaveWritten(const std::filesystem::path& file) {
    struct stat status {};
    return stat(file.c_str(), &status) == 0 && tavrin::canOthersWrite(status);
}

/// Passes the completion the work's result, or the error that it threw.
template <typename Result, typename Work>
void run(WorkQueue& queue, Work work, std::function<void(Result)> completion) {
    const auto resultOf = [work = std::move(work)]() -> Result {
        try {
            return work();
        } catch (const tavrin::PlatformError& error) {
            return error;
        }
    };
    queue.run(resultOf, std::move(completion));
}

} // namespace

std::filesystem::path AutostartLoginItem::defaultFolder() {
    return std::filesystem::path(
               QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
                   .toStdString()) /
           "autostart";
}

AutostartLoginItem::AutostartLoginItem(Options options)
    : options_(std::move(options)),
      file_(options_.folder / fmt::format("{}.desktop", options_.identifier)) {}

void AutostartLoginItem::registerItem(Completion completion) {
    const auto work = [this] {
        writeEntry(file_, options_);
        return std::nullopt;
    };
    run(disk_, work, std::move(completion));
}

void AutostartLoginItem::unregisterItem(Completion completion) {
    const auto work = [this] {
        removeEntry(file_);
        return std::nullopt;
    };
    run(disk_, work, std::move(completion));
}

void AutostartLoginItem::repairItem(Completion completion) {
    const auto work = [this] {
        if (statusOf(file_) == Status::Enabled &&
            (isProgramGone(file_) || mayOthersHaveWritten(file_))) {
            writeEntry(file_, options_);
        }
        return std::nullopt;
    };
    run(disk_, work, std::move(completion));
}

void AutostartLoginItem::status(StatusCompletion completion) {
    run(
        disk_, [this] { return statusOf(file_); }, std::move(completion));
}

} // namespace orvel
