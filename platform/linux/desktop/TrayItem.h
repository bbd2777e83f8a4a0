// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QPointer>

#include <string>

namespace orvel {

class TrayItemProperties;

/// Sets the title of Qt's tray icon on the session bus, which screen readers read. Qt uses the
/// program's file name and offers no way to change it.
///
/// Main thread.
class TrayItem final {
public:
    /// Sets the current icon's title. Does nothing without an icon, or when a Qt version implements
    /// icons differently.
    void setTitle(const std::string& title);

private:
    void findItem();

    /// The connection number of the last icon found; Qt's numbers only increase.
    int number_ = 1;
    /// Destroyed with the icon.
    QPointer<TrayItemProperties> properties_;
};

} // namespace orvel
