// SPDX-License-Identifier: Apache-2.0
#include "tests/support/messages/LiveDatabaseWriter.h"

#include "tests/support/messages/WritableDatabase.h"

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
#include <new>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace orvel::test {

struct LiveDatabaseWriter::Shared {
    std::atomic<std::int64_t> committed{0};
    std::atomic<bool> isWorking{true};
};

namespace {

void check(bool succeeded, const char* what) {
    if (!succeeded) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

/// Runs in the writing process until the channel is closed.
void writeMessages(
    const std::filesystem::path& path,
    std::int64_t messages,
    int channel,
    std::atomic<std::int64_t>& committed,
    std::atomic<bool>& isWorking) {
    const auto report = [&] {
        isWorking = false;
        const char done = 1;
        check(write(channel, &done, 1) == 1, "write");
    };
    WritableDatabase database(path);
    database.addMessages(messages);
    database.execute("PRAGMA wal_checkpoint(TRUNCATE)");
    committed = database.lastRowId();
    report();

    LiveDatabaseWriter::Work work;
    while (read(channel, &work, sizeof work) == sizeof work) {
        std::int64_t restarts = 0;
        for (std::int64_t count = 1; count <= work.transactions; ++count) {
            database.addMessages(1);
            committed = database.lastRowId();
            if (count % work.transactionsPerRestart == 0 && restarts < work.restarts) {
                ++restarts;
                database.execute(
                    restarts % 2 == 0 ? "PRAGMA wal_checkpoint(TRUNCATE)"
                                      : "PRAGMA wal_checkpoint(RESTART)");
            }
            pollfd parent{channel, POLLIN, 0};
            const auto pause = static_cast<int>(work.pauseAfterTransaction.count());
            if (pause > 0 && poll(&parent, 1, pause) > 0) {
                return;
            }
        }
        report();
    }
}

} // namespace

LiveDatabaseWriter::LiveDatabaseWriter(
    const std::filesystem::path& database, std::int64_t messages) {
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
            writeMessages(database, messages, channel[1], shared_->committed, shared_->isWorking);
        } catch (const std::exception& error) {
            std::fprintf(stderr, "writer: %s\n", error.what());
            _exit(1);
        }
        _exit(0);
    }
    close(channel[1]);
    channel_ = tavrin::FileDescriptor(channel[0]);
    finish();
}

LiveDatabaseWriter::~LiveDatabaseWriter() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    munmap(shared_, sizeof(Shared));
}

void LiveDatabaseWriter::begin(const Work& work) {
    shared_->isWorking = true;
    check(write(channel_.get(), &work, sizeof work) == sizeof work, "write");
}

void LiveDatabaseWriter::finish() {
    char done = 0;
    if (read(channel_.get(), &done, 1) != 1) {
        throw std::runtime_error("the writer has ended");
    }
}

void LiveDatabaseWriter::awaitProgress() const {
    const std::int64_t before = committed();
    while (shared_->isWorking && committed() == before) {
        std::this_thread::yield();
    }
}

std::int64_t LiveDatabaseWriter::committed() const {
    return shared_->committed;
}

} // namespace orvel::test
