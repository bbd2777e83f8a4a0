// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/signin/SchemeRegistration.h"

#include "core/WriteAccess.h"
#include "platform/linux/signin/SignInDesktopEntry.h"
#include "platform/linux/support/DesktopEntry.h"
#include "platform/linux/support/DesktopProgram.h"
#include "platform/linux/support/StartThread.h"

#include <QFileInfo>
#include <QStandardPaths>
#include <QString>

#include <fmt/format.h>
#include <glib.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>
#include <variant>

namespace orvel {

namespace {

constexpr auto entryName = "app.orvel.OrvelAgent.SignIn.desktop";
constexpr auto mimeType = "x-scheme-handler/orvelagent";
constexpr tavrin::Seconds runTimeout(10);

/// The entry that starts the program.
std::string entryFor(const std::string& program) {
    return fmt::format(
        signInDesktopEntry, desktopEntryValue(program), desktopEntryCommand(program));
}

/// Whether the file's owner and mode let only the user and root write to it. Its folder is not
/// examined: another user who can write there could also put an entry of another name in effect.
bool isTrusted(const std::string& file) {
    struct stat status {};
    return stat(file.c_str(), &status) == 0 && !tavrin::canOthersWrite(status);
}

/// Whether the entry in effect, the user's or the system's, starts exactly this program.
bool hasEntryFor(const std::string& program) {
    const std::string file =
        QStandardPaths::locate(QStandardPaths::ApplicationsLocation, QString::fromLatin1(entryName))
            .toStdString();
    if (file.empty() || !isTrusted(file)) {
        return false;
    }
    try {
        const KeyFile entry = readDesktopEntry(file);
        const KeyFile wanted = parseDesktopEntry(entryFor(program));
        return entry && wanted &&
               valueIn(entry, G_KEY_FILE_DESKTOP_KEY_TRY_EXEC) ==
                   valueIn(wanted, G_KEY_FILE_DESKTOP_KEY_TRY_EXEC) &&
               valueIn(entry, G_KEY_FILE_DESKTOP_KEY_EXEC) ==
                   valueIn(wanted, G_KEY_FILE_DESKTOP_KEY_EXEC);
    } catch (const tavrin::PlatformError&) {
        // An entry that cannot be read is replaced.
        return false;
    }
}

/// Writes the user's entry and returns its folder.
std::string write(const std::filesystem::path& program) {
    const std::string& path = program.native();
    if (!QFileInfo(QString::fromStdString(path)).isExecutable()) {
        throw tavrin::PlatformError::fromErrno(ENOENT, path);
    }
    checkProgramPath(program);
    const std::filesystem::path folder =
        QStandardPaths::writableLocation(QStandardPaths::ApplicationsLocation).toStdString();
    writeDesktopEntry(folder / entryName, entryFor(path));
    return folder.string();
}

bool hasSucceeded(const std::variant<FinishedProgram, tavrin::PlatformError>& result) {
    const auto* program = std::get_if<FinishedProgram>(&result);
    return program != nullptr && program->status == 0;
}

} // namespace

std::filesystem::path SchemeRegistration::callbackProgram() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path() / "orvel-agent-callback";
}

std::filesystem::path SchemeRegistration::program(const ProgramTraces& traces) {
    return ownAppImage(traces).value_or(traces.executable.parent_path() / "orvel-agent-callback");
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
                if (isDefault && hasEntryFor(program.native())) {
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
