// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tests/support/TemporaryDirectory.h"

#include <QByteArray>
#include <QProcess>
#include <QString>

#include <sys/types.h>

#include <csignal>
#include <fstream>
#include <stdexcept>
#include <string>

namespace orvel::test {

/// A session bus without any services, also none that it could start.
///
/// GLib's test daemon is unusable: it forks a watcher, in which the leak checker reports this
/// process's memory.
class BusDaemon final {
public:
    BusDaemon() {
        std::ofstream(folder_ / "bus.conf") << R"(
            <busconfig>
              <listen>unix:tmpdir=/tmp</listen>
              <policy context="default">
                <allow send_destination="*" eavesdrop="true"/>
                <allow eavesdrop="true"/>
                <allow own="*"/>
              </policy>
            </busconfig>)";
        process_.start(
            QStringLiteral("dbus-daemon"),
            {QStringLiteral("--nofork"),
             QStringLiteral("--print-address"),
             QStringLiteral("--config-file=%1").arg(QString::fromStdString(folder_ / "bus.conf"))});
        process_.waitForReadyRead();
        address_ = process_.readLine().trimmed().toStdString();
        if (address_.empty()) {
            throw std::runtime_error(
                "There is no bus: " + process_.readAllStandardError().toStdString());
        }
    }
    ~BusDaemon() {
        resume();
        process_.terminate();
        process_.waitForFinished();
    }
    BusDaemon(const BusDaemon&) = delete;
    BusDaemon& operator=(const BusDaemon&) = delete;

    [[nodiscard]] const std::string& address() const { return address_; }

    /// New connections get no answer until `resume`.
    void suspend() const { signal(SIGSTOP); }
    void resume() const { signal(SIGCONT); }

private:
    void signal(int number) const { kill(static_cast<pid_t>(process_.processId()), number); }

    TemporaryDirectory folder_;
    QProcess process_;
    std::string address_;
};

} // namespace orvel::test
