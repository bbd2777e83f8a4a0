// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/AutostartLoginItem.h"

#include "core/Text.h"
#include "platform/linux/support/DesktopEntry.h"
#include "platform/linux/support/ReadFile.h"

#include <QObject>
#include <QStandardPaths>
#include <QString>
#include <QThreadPool>

#include <fmt/format.h>
#include <glib.h>

#include <cerrno>
#include <cstddef>
#include <string_view>
#include <utility>

namespace orvel {

namespace {

constexpr std::size_t maximumEntryBytes = std::size_t{64} << 10U;

struct FreeKeyFile {
    void operator()(GKeyFile* keyFile) const { g_key_file_free(keyFile); }
};

void writeEntry(const std::filesystem::path& file, const AutostartLoginItem::Options& options) {
    const std::string& program = options.program.native();
    if (!tavrin::isValidUTF8(program)) {
        throw tavrin::PlatformError::fromErrno(
            EILSEQ, fmt::format("Could not write {}", file.string()));
    }
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
    std::string entry;
    try {
        entry = readFile(file, maximumEntryBytes);
    } catch (const tavrin::PlatformError& error) {
        if (error.code() == ENOENT) {
            return LoginItem::Status::NotRegistered;
        }
        throw;
    }
    const std::unique_ptr<GKeyFile, FreeKeyFile> keys(g_key_file_new());
    if (g_key_file_load_from_data(
            keys.get(), entry.data(), entry.size(), G_KEY_FILE_NONE, nullptr) == FALSE) {
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

/// Runs `work()` on the pool, then passes its result or the error it threw to the completion on the
/// context's thread, unless the context was destroyed before.
template <typename Result, typename Work>
void run(QThreadPool& pool, QObject* context, Work work, std::function<void(Result)> completion) {
    pool.start([context, work = std::move(work), completion = std::move(completion)]() mutable {
        const auto resultOf = [&work]() -> Result {
            try {
                return work();
            } catch (const tavrin::PlatformError& error) {
                return error;
            }
        };
        QMetaObject::invokeMethod(
            context,
            [result = resultOf(), completion = std::move(completion)] { completion(result); },
            Qt::QueuedConnection);
    });
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
      file_(options_.folder / fmt::format("{}.desktop", options_.identifier)),
      callbackContext_(std::make_unique<QObject>()),
      disk_(std::make_unique<QThreadPool>()) {
    disk_->setMaxThreadCount(1);
}

AutostartLoginItem::~AutostartLoginItem() = default;

void AutostartLoginItem::registerItem(Completion completion) {
    const auto work = [this] {
        writeEntry(file_, options_);
        return std::nullopt;
    };
    run(*disk_, callbackContext_.get(), work, std::move(completion));
}

void AutostartLoginItem::unregisterItem(Completion completion) {
    const auto work = [this] {
        removeEntry(file_);
        return std::nullopt;
    };
    run(*disk_, callbackContext_.get(), work, std::move(completion));
}

void AutostartLoginItem::status(StatusCompletion completion) {
    run(
        *disk_, callbackContext_.get(), [this] { return statusOf(file_); }, std::move(completion));
}

} // namespace orvel
