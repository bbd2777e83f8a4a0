// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/TerminalQuestion.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <utility>

namespace orvel {

void TerminalQuestion::ask(const std::string& question, std::function<void(bool)> answer) {
    std::fputs(question.c_str(), stderr);
    auto* notifier = new QSocketNotifier( // NOLINT(cppcoreguidelines-owning-memory)
        STDIN_FILENO,
        QSocketNotifier::Read,
        QCoreApplication::instance());
    QObject::connect(
        notifier, &QSocketNotifier::activated, notifier, [notifier, answer = std::move(answer)] {
            // A terminal delivers whole lines.
            std::array<char, 256> line{};
            const ssize_t length = read(STDIN_FILENO, line.data(), line.size());
            notifier->setEnabled(false);
            notifier->deleteLater();
            if (length <= 0) {
                // The terminal is closed. That is not a "no", so end like after a hang-up.
                std::raise(SIGHUP);
                return;
            }
            answer(line[0] == 'y' || line[0] == 'Y');
        });
}

} // namespace orvel
