// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/base/SignalWatch.h"

#include "core/Errors.h"

#include <QSocketNotifier>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <utility>

namespace orvel {

namespace {

constexpr std::array endingSignals = {SIGHUP, SIGINT, SIGTERM};

// A signal handler can use only globals.

/// The pipe through which the handler sends the signal's number to the main thread.
std::array<int, 2> signalPipe = {-1, -1};
/// In seconds of the monotonic clock: how long further signals are ignored, and until when.
/// `ignoredUntil` is zero before the first signal.
time_t ignoredFor = 0;
std::atomic<time_t> ignoredUntil = 0;
static_assert(std::atomic<time_t>::is_always_lock_free);

extern "C" void handleSignal(int number) {
    const int savedError = errno;
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    time_t until = 0;
    if (ignoredUntil.compare_exchange_strong(until, now.tv_sec + ignoredFor)) {
        const auto byte = static_cast<unsigned char>(number);
        // The pipe is empty, because only the first signal is written to it.
        [[maybe_unused]] const ssize_t written = write(signalPipe[1], &byte, 1);
    } else if (now.tv_sec >= until) {
        struct sigaction usual {};
        usual.sa_handler = SIG_DFL;
        sigaction(number, &usual, nullptr);
        // Takes effect when this handler returns.
        raise(number);
    }
    errno = savedError;
}

/// Child processes do not inherit the pipe, and it never blocks.
void openSignalPipe() {
    if (pipe(signalPipe.data()) != 0) {
        throw tavrin::PlatformError::fromErrno(errno, "Could not watch for signals");
    }
    for (const int end : signalPipe) {
        fcntl(end, F_SETFD, FD_CLOEXEC);
        fcntl(end, F_SETFL, O_NONBLOCK);
    }
}

} // namespace

SignalWatch::SignalWatch(std::function<void()> onSignal, std::chrono::seconds gracePeriod)
    : onSignal_(std::move(onSignal)) {
    openSignalPipe();
    notifier_ = std::make_unique<QSocketNotifier>(signalPipe[0], QSocketNotifier::Read);
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, notifier_.get(), [this] {
        unsigned char number = 0;
        if (read(signalPipe[0], &number, 1) == 1) {
            received_ = number;
            onSignal_();
        }
    });
    ignoredFor = static_cast<time_t>(gracePeriod.count());
    ignoredUntil = 0;
    struct sigaction action {};
    action.sa_handler = handleSignal;
    action.sa_flags = SA_RESTART;
    for (const int number : endingSignals) {
        // Do not handle a signal that the parent process set to be ignored, as nohup does.
        struct sigaction inherited {};
        sigaction(number, nullptr, &inherited);
        if (inherited.sa_handler != SIG_IGN) {
            sigaction(number, &action, nullptr);
        }
    }
}

SignalWatch::~SignalWatch() {
    for (const int number : endingSignals) {
        struct sigaction usual {};
        usual.sa_handler = SIG_DFL;
        sigaction(number, &usual, nullptr);
    }
    notifier_.reset();
    for (int& end : signalPipe) {
        close(std::exchange(end, -1));
    }
}

} // namespace orvel
