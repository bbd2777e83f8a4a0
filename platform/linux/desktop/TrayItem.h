// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QPointer>

#include <string>

namespace orvel {

class TrayItemProperties;

/// The icon that Qt shows in a tray of the session bus. Its title there, which the tray tells
/// screen readers, is the program's file name, and Qt has no way to change it.
///
/// Main thread.
class TrayItem final {
public:
    /// Of the icon that is shown now. Does nothing when none is, or when another Qt shows it in
    /// another way.
    void setTitle(const std::string& title);

private:
    void findItem();

    /// Of the last icon that was found: Qt never counts back.
    int number_ = 1;
    /// Destroyed with the icon.
    QPointer<TrayItemProperties> properties_;
};

} // namespace orvel
