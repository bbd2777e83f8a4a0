// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/SignalWatch.h"

#include "core/Errors.h"

#include <QSocketNotifier>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <utility>

namespace orvel {

namespace {

constexpr std::array endingSignals = {SIGHUP, SIGINT, SIGTERM};

/// Both ends of the pipe that carries a signal's number out of its handler. A handler can reach
/// nothing but a global.
std::array<int, 2> signalPipe = {-1, -1};

extern "C" void writeSignal(int number) {
    const int savedError = errno;
    const auto byte = static_cast<unsigned char>(number);
    // A full pipe already holds what is needed.
    [[maybe_unused]] const ssize_t written = write(signalPipe[1], &byte, 1);
    // The next one has its usual effect, should we hang.
    struct sigaction usual {};
    usual.sa_handler = SIG_DFL;
    sigaction(number, &usual, nullptr);
    errno = savedError;
}

} // namespace

SignalWatch::SignalWatch(std::function<void()> onSignal) : onSignal_(std::move(onSignal)) {
    if (pipe2(signalPipe.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        throw tavrin::PlatformError::fromErrno(errno, "Could not watch for signals");
    }
    notifier_ = std::make_unique<QSocketNotifier>(signalPipe[0], QSocketNotifier::Read);
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, notifier_.get(), [this] {
        unsigned char number = 0;
        if (read(signalPipe[0], &number, 1) == 1) {
            received_ = number;
            onSignal_();
        }
    });
    struct sigaction action {};
    action.sa_handler = writeSignal;
    action.sa_flags = SA_RESTART;
    for (const int number : endingSignals) {
        // Whoever started us may have chosen that we ignore it, as nohup does.
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
