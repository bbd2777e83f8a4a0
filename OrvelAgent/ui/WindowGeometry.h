// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QCoroTask>

#include <memory>
#include <string>
#include <vector>

class QString;
class QWidget;

namespace tavrin {
class UserDefaults;
}

namespace orvel {

class Worker;

/// Saves and restores the windows' geometry in the user defaults, keyed by object name. Failures to
/// save are ignored. Borrows the defaults.
class WindowGeometry final {
public:
    explicit WindowGeometry(tavrin::UserDefaults& defaults);
    ~WindowGeometry();
    WindowGeometry(const WindowGeometry&) = delete;
    WindowGeometry& operator=(const WindowGeometry&) = delete;

    /// Centres the window on the primary screen if its saved position is on no connected screen.
    /// Returns false if no geometry was saved.
    bool restore(QWidget& window) const;

    /// Writes on a thread that ends with the last pending write. The destructor waits for them.
    void save(const QWidget& window);

private:
    QCoro::Task<> write(std::string key, std::string geometry);

    tavrin::UserDefaults& defaults_;
    /// Only while writes are pending: the agent runs for weeks and seldom closes a window.
    std::unique_ptr<Worker> worker_;
    int pendingWrites_ = 0;
    std::vector<QCoro::Task<>> writes_;
};

} // namespace orvel
