// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/signin/SchemeRegistration.h"

#include "platform/linux/signin/SignInDesktopEntry.h"
#include "platform/linux/support/DesktopEntry.h"
#include "platform/linux/support/DesktopProgram.h"
#include "platform/linux/support/StartThread.h"

#include <QFileInfo>
#include <QStandardPaths>
#include <QString>

#include <fmt/format.h>
#include <glib.h>

#include <algorithm>
#include <cerrno>
#include <utility>
#include <variant>

namespace orvel {

namespace {

constexpr auto entryName = "app.orvel.OrvelAgent.SignIn.desktop";
constexpr auto mimeType = "x-scheme-handler/orvelagent";
constexpr tavrin::Seconds runTimeout(10);

/// Whether the entry in effect, the user's or the system's, names an existing program.
bool entryHasProgram() {
    const QString file = QStandardPaths::locate(
        QStandardPaths::ApplicationsLocation, QString::fromLatin1(entryName));
    if (file.isEmpty()) {
        return false;
    }
    const KeyFile entry = readDesktopEntry(file.toStdString());
    const std::unique_ptr<char, decltype(&g_free)> program(
        entry ? g_key_file_get_string(
                    entry.get(), G_KEY_FILE_DESKTOP_GROUP, G_KEY_FILE_DESKTOP_KEY_TRY_EXEC, nullptr)
              : nullptr,
        g_free);
    return program && QFileInfo(QString::fromUtf8(program.get())).isExecutable();
}

/// Writes the user's entry and returns its folder.
std::string write(const std::filesystem::path& program) {
    const std::string& path = program.native();
    if (!QFileInfo(QString::fromStdString(path)).isExecutable()) {
        throw tavrin::PlatformError::fromErrno(ENOENT, path);
    }
    if (std::ranges::any_of(path, [](char byte) { return byte > 0 && byte < ' '; })) {
        throw tavrin::PlatformError::fromErrno(EINVAL, "The program's path");
    }
    const std::filesystem::path folder =
        QStandardPaths::writableLocation(QStandardPaths::ApplicationsLocation).toStdString();
    writeDesktopEntry(
        folder / entryName,
        fmt::format(signInDesktopEntry, desktopEntryValue(path), desktopEntryCommand(path)));
    return folder.string();
}

bool hasSucceeded(const std::variant<FinishedProgram, tavrin::PlatformError>& result) {
    const auto* program = std::get_if<FinishedProgram>(&result);
    return program != nullptr && program->status == 0;
}

} // namespace

std::filesystem::path SchemeRegistration::defaultProgram() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path() / "orvel-agent-callback";
}

SchemeRegistration::SchemeRegistration(
    std::filesystem::path program, Clock& clock, LogStore& logStore)
    : program_(std::move(program)), clock_(clock), logStore_(logStore) {}

void SchemeRegistration::ensure(std::function<void()> completion) {
    completions_.push_back(std::move(completion));
    if (completions_.size() > 1) {
        return;
    }
    timer_ = clock_.schedule(runTimeout, [this] {
        callbackContext_.emplace();
        end("the desktop takes too long");
    });
    runDesktopProgram(
        {"xdg-mime", "query", "default", mimeType},
        ProgramOutput::Kept,
        &*callbackContext_,
        [this](const auto& result) {
            writeEntry(
                hasSucceeded(result) &&
                std::get<FinishedProgram>(result).output == fmt::format("{}\n", entryName));
        });
}

void SchemeRegistration::writeEntry(bool isDefault) {
    // The folder of the entry written, nothing if the existing entry is fine, or the error.
    using Written = std::variant<std::monostate, std::string, tavrin::PlatformError>;
    // On a thread, because the disk may take longer than a frame.
    startThread(
        &*callbackContext_,
        [isDefault, program = program_]() -> Written {
            try {
                if (isDefault && entryHasProgram()) {
                    return std::monostate();
                }
                return write(program);
            } catch (const tavrin::PlatformError& error) {
                return error;
            }
        },
        [this](const Written& written) {
            if (const auto* folder = std::get_if<std::string>(&written)) {
                makeDefault(*folder);
            } else if (const auto* error = std::get_if<tavrin::PlatformError>(&written)) {
                end(error->what());
            } else {
                end();
            }
        })
        .detach();
}

void SchemeRegistration::makeDefault(const std::string& folder) {
    // Ignore failures: not every desktop has this database.
    runDesktopProgram(
        {"update-desktop-database", folder},
        ProgramOutput::Dropped,
        &*callbackContext_,
        [this](const auto&) {
            runDesktopProgram(
                {"xdg-mime", "default", entryName, mimeType},
                ProgramOutput::Dropped,
                &*callbackContext_,
                [this](const auto& result) { end(hasSucceeded(result) ? "" : "xdg-mime failed"); });
        });
}

void SchemeRegistration::end(const std::string& failure) {
    timer_.reset();
    if (!failure.empty()) {
        logStore_.write(
            LogLevel::Error,
            "auth",
            fmt::format("could not register the sign-in's way back: {}", failure));
    }
    // A completion may destroy this object.
    for (const auto& completion : std::exchange(completions_, {})) {
        completion();
    }
}

} // namespace orvel
