// SPDX-License-Identifier: Apache-2.0
#include "tests/support/Program.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <fstream>
#include <iterator>
#include <system_error>

// Some systems' headers do not declare it.
extern "C" char** environ;

namespace orvel::test {

namespace {

std::string contentOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> environmentWith(const std::map<std::string, std::string>& changes) {
    std::vector<std::string> environment;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        if (!changes.contains(text.substr(0, text.find('=')))) {
            environment.push_back(text);
        }
    }
    for (const auto& [name, value] : changes) {
        if (!value.empty()) {
            environment.push_back(name + "=" + value);
        }
    }
    return environment;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

} // namespace

Program::Program(const Options& options) {
    std::vector<std::string> arguments = options.arguments;
    std::vector<std::string> environment = environmentWith(options.environment);
    posix_spawn_file_actions_t actions{};
    posix_spawn_file_actions_init(&actions);
    constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC;
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(
        &actions, STDOUT_FILENO, (files_ / "output").c_str(), flags, 0600);
    posix_spawn_file_actions_addopen(
        &actions, STDERR_FILENO, (files_ / "errors").c_str(), flags, 0600);
    const int error = posix_spawn(
        &pid_,
        arguments.front().c_str(),
        &actions,
        nullptr,
        pointersTo(arguments).data(),
        pointersTo(environment).data());
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), arguments.front());
    }
}

Program::~Program() {
    if (!status_) {
        signal(SIGKILL);
        wait();
    }
}

int Program::wait() {
    if (!status_) {
        int status = 0;
        while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
        }
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return *status_;
}

std::optional<int> Program::waitFor(std::chrono::milliseconds limit) {
    if (!status_) {
        if (!end_.valid()) {
            end_ = std::async(std::launch::async, [pid = pid_] {
                siginfo_t information{};
                // WNOWAIT leaves the status for `wait()`.
                while (waitid(P_PID, static_cast<id_t>(pid), &information, WEXITED | WNOWAIT) < 0 &&
                       errno == EINTR) {
                }
            });
        }
        if (end_.wait_for(limit) != std::future_status::ready) {
            return std::nullopt;
        }
    }
    return wait();
}

void Program::signal(int number) const {
    if (!status_) {
        kill(pid_, number);
    }
}

std::string Program::output() const {
    return contentOf(files_ / "output");
}

std::string Program::errors() const {
    return contentOf(files_ / "errors");
}

} // namespace orvel::test
