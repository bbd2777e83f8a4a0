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

    /// Writes on a worker thread. The destructor waits for pending writes.
    void save(const QWidget& window);

private:
    tavrin::UserDefaults& defaults_;
    /// Created on first use, because most runs never save a geometry.
    std::unique_ptr<Worker> worker_;
    std::vector<QCoro::Task<>> writes_;
};

} // namespace orvel
