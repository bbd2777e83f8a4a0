// SPDX-License-Identifier: Apache-2.0
#include "bench/ChildProcess.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace orvel::bench {

ChildProcess::ChildProcess(const std::vector<std::string>& arguments) {
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str())); // NOLINT: posix_spawn's signature
    }
    argv.push_back(nullptr);
    std::array<int, 2> pipe{};
    if (pipe2(pipe.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    posix_spawn_file_actions_t actions{};
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipe[1], STDOUT_FILENO);
    const int error = posix_spawnp(&pid_, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(pipe[1]);
    output_ = pipe[0];
    if (error != 0) {
        close(output_);
        throw std::system_error(error, std::generic_category(), arguments.front());
    }
}

ChildProcess::~ChildProcess() {
    if (pid_ > 0) {
        kill(pid_, SIGTERM);
        wait();
    }
    close(output_);
}

std::string ChildProcess::readLine() {
    std::string line;
    char character = 0;
    while (read(output_, &character, 1) == 1 && character != '\n') {
        line += character;
    }
    return line;
}

ChildUsage ChildProcess::wait() {
    int status = 0;
    rusage usage{};
    while (wait4(pid_, &status, 0, &usage) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    ChildUsage result;
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    result.peakKibibytes = usage.ru_maxrss;
    return result;
}

ChildUsage runProgram(const std::vector<std::string>& arguments) {
    ChildProcess process(arguments);
    while (!process.readLine().empty()) {
        // Discard the output: the program would block on a full pipe.
    }
    const ChildUsage usage = process.wait();
    if (usage.status != 0) {
        throw std::runtime_error(
            arguments.front() + " ended with status " + std::to_string(usage.status) + ".");
    }
    return usage;
}

} // namespace orvel::bench
