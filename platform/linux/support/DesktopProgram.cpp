// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/support/DesktopProgram.h"

#include "platform/linux/support/StartThread.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <string_view>
#include <utility>

namespace orvel {

namespace {

using Result = std::variant<FinishedProgram, tavrin::PlatformError>;

constexpr std::size_t maximumOutputBytes = std::size_t{64} << 10U;

bool isVariable(std::string_view entry, std::string_view name) {
    return entry.starts_with(name) && entry.substr(name.size()).starts_with('=');
}

/// The environment without activation tokens, which were meant for this process and are valid once.
std::vector<std::string> ownEnvironment() {
    std::vector<std::string> variables;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        if (!isVariable(*variable, "XDG_ACTIVATION_TOKEN") &&
            !isVariable(*variable, "DESKTOP_STARTUP_ID")) {
            variables.emplace_back(*variable);
        }
    }
    return variables;
}

std::vector<std::string> environmentOfOthers() {
    std::vector<std::string> variables = ownEnvironment();
    std::erase_if(variables, [](const std::string& each) { return each.starts_with("ORVEL_"); });
    return variables;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

/// The settings for `posix_spawn`.
class SpawnSettings final {
public:
    /// Redirects standard output to `output`, or discards it when negative.
    explicit SpawnSettings(int output) {
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        if (output < 0) {
            posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        } else {
            posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
        }
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);

        // Do not inherit ignored or blocked signals.
        posix_spawnattr_init(&attributes);
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&attributes, &signals);
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&attributes, &signals);
        posix_spawnattr_setflags(
            &attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnSettings() {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    posix_spawn_file_actions_t actions{};
    posix_spawnattr_t attributes{};
};

/// Reads to the end or the limit. Output beyond the limit is discarded.
std::string contentOf(int descriptor) {
    std::string content;
    std::array<char, 4096> part{};
    while (content.size() < maximumOutputBytes) {
        const ssize_t length = read(descriptor, part.data(), part.size());
        if (length > 0) {
            content.append(part.data(), static_cast<std::size_t>(length));
        } else if (length == 0 || errno != EINTR) {
            break;
        }
    }
    return content;
}

/// The process id, or the error.
std::variant<pid_t, tavrin::PlatformError>
spawn(std::vector<std::string> commandLine, std::vector<std::string> environment, int output) {
    const SpawnSettings settings(output);
    pid_t pid = -1;
    const int error = posix_spawnp(
        &pid,
        commandLine.front().c_str(),
        &settings.actions,
        &settings.attributes,
        pointersTo(commandLine).data(),
        pointersTo(environment).data());
    if (error != 0) {
        return tavrin::PlatformError::fromErrno(error, commandLine.front());
    }
    return pid;
}

Result
run(std::vector<std::string> commandLine,
    std::vector<std::string> environment,
    ProgramOutput output) {
    std::array<int, 2> pipe{-1, -1};
    if (output == ProgramOutput::Kept && pipe2(pipe.data(), O_CLOEXEC) != 0) {
        return tavrin::PlatformError::fromErrno(errno, "Could not make a pipe");
    }
    const auto spawned = spawn(std::move(commandLine), std::move(environment), pipe[1]);
    const auto* pid = std::get_if<pid_t>(&spawned);
    FinishedProgram program;
    if (output == ProgramOutput::Kept) {
        close(pipe[1]);
        program.output = pid != nullptr ? contentOf(pipe[0]) : std::string();
        close(pipe[0]);
    }
    if (pid == nullptr) {
        return std::get<tavrin::PlatformError>(spawned);
    }
    int status = 0;
    while (waitpid(*pid, &status, 0) < 0 && errno == EINTR) {
    }
    program.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return program;
}

} // namespace

void runDesktopProgram(
    std::vector<std::string> commandLine,
    ProgramOutput output,
    QObject* context,
    std::function<void(Result)> end) {
    // Detached and without access to this object: the thread may outlive the context, and waits for
    // the program so that no zombie remains.
    startThread(
        context,
        [commandLine = std::move(commandLine), environment = environmentOfOthers(), output] {
            return run(commandLine, environment, output);
        },
        std::move(end))
        .detach();
}

std::optional<tavrin::PlatformError> startSuccessor(std::vector<std::string> commandLine) {
    const auto spawned = spawn(std::move(commandLine), ownEnvironment(), -1);
    if (const auto* error = std::get_if<tavrin::PlatformError>(&spawned)) {
        return *error;
    }
    return std::nullopt;
}

} // namespace orvel
