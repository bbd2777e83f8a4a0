// SPDX-License-Identifier: Apache-2.0
#include "tests/support/WritingProcess.h"

#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <new>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace orvel::test {

struct WritingProcess::Shared {
    Committed committed{0};
    std::atomic<std::int64_t> steps{0};
    std::atomic<bool> isWorking{true};
    std::atomic<bool> hasFailed{false};
};

namespace {

void check(bool succeeded, const char* what) {
    if (!succeeded) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

/// Also notices that the other process has closed its end.
bool hasInput(int channel, std::chrono::milliseconds limit) {
    pollfd entry{channel, POLLIN, 0};
    return poll(&entry, 1, static_cast<int>(limit.count())) > 0;
}

/// Runs in the other process until the channel is closed.
template <typename Shared>
void work(WritingProcess::Writer& writer, int channel, Shared& shared) {
    const auto report = [&] {
        shared.isWorking = false;
        const char done = 1;
        check(write(channel, &done, 1) == 1, "write");
    };
    report();
    WritingProcess::Work work;
    while (read(channel, &work, sizeof work) == sizeof work) {
        for (std::int64_t number = 1; number <= work.steps; ++number) {
            writer.step(number);
            ++shared.steps;
            if (hasInput(channel, work.pauseAfterStep)) {
                return;
            }
        }
        report();
    }
}

} // namespace

WritingProcess::WritingProcess(const MakeWriter& makeWriter) {
    void* memory =
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    check(memory != MAP_FAILED, "mmap");
    shared_ = new (memory) Shared;
    std::array<int, 2> channel{};
    check(socketpair(AF_UNIX, SOCK_STREAM, 0, channel.data()) == 0, "socketpair");
    process_ = fork();
    check(process_ >= 0, "fork");
    if (process_ == 0) {
        close(channel[0]);
        try {
            work(*makeWriter(shared_->committed), channel[1], *shared_);
        } catch (const std::exception& error) {
            std::fprintf(stderr, "writer: %s\n", error.what());
            shared_->hasFailed = true;
            _exit(1);
        }
        _exit(0);
    }
    close(channel[1]);
    channel_ = tavrin::FileDescriptor(channel[0]);
    finish();
}

WritingProcess::~WritingProcess() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    munmap(shared_, sizeof(Shared));
}

void WritingProcess::begin(const Work& work) {
    shared_->isWorking = true;
    check(write(channel_.get(), &work, sizeof work) == sizeof work, "write");
}

void WritingProcess::finish() {
    char done = 0;
    if (read(channel_.get(), &done, 1) != 1) {
        throw std::runtime_error("the writer has ended");
    }
}

void WritingProcess::awaitSteps(std::int64_t steps) const {
    const std::int64_t goal = shared_->steps + steps;
    while (shared_->isWorking && shared_->steps < goal) {
        if (shared_->hasFailed) {
            throw std::runtime_error("the writer has failed");
        }
        std::this_thread::yield();
    }
}

std::int64_t WritingProcess::committed() const {
    return shared_->committed;
}

} // namespace orvel::test
