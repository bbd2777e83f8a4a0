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

/// Where the user left the windows, by their object names, in the user defaults. A place that
/// cannot be saved is no loss worth telling of. Borrows the defaults.
class WindowGeometry final {
public:
    explicit WindowGeometry(tavrin::UserDefaults& defaults);
    ~WindowGeometry();
    WindowGeometry(const WindowGeometry&) = delete;
    WindowGeometry& operator=(const WindowGeometry&) = delete;

    /// Puts the window where it was left, or in the middle of the screen when the one where it was
    /// left is gone. Gives false when that is not known.
    bool restore(QWidget& window) const;

    /// In the background; what is still to be written then is written by the destructor.
    void save(const QWidget& window);

private:
    tavrin::UserDefaults& defaults_;
    /// Made when first needed: most launches move no window.
    std::unique_ptr<Worker> worker_;
    /// Those that may still be under way.
    std::vector<QCoro::Task<>> writes_;
};

} // namespace orvel
