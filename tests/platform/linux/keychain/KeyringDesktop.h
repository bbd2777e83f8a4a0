// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVirtualObject>

#include <functional>
#include <string>
#include <vector>

namespace orvel::test {

/// The GNOME keyring of a private session and its simulated user, who gets a password dialog while
/// the keyring is locked. Unlocks the keyring and closes dialogs on construction and destruction.
///
/// Throws `std::runtime_error` on errors and outside a private session.
class KeyringDesktop final {
public:
    KeyringDesktop();
    ~KeyringDesktop();
    KeyringDesktop(const KeyringDesktop&) = delete;
    KeyringDesktop& operator=(const KeyringDesktop&) = delete;

    void lock();
    void unlock();

    /// The number of open dialogs.
    [[nodiscard]] std::size_t dialogs() const { return dialogs_.size(); }
    /// Closes all dialogs without a password.
    void dismissDialogs();

    /// The values of all items of that service and account.
    [[nodiscard]] std::vector<std::string>
    values(const std::string& service, const std::string& account);

    /// Stores an item as another program.
    void add(const std::string& service, const std::string& account, const std::string& value);

private:
    /// The fake program that shows the dialogs.
    class Prompter final : public QDBusVirtualObject {
    public:
        explicit Prompter(KeyringDesktop& desktop) : desktop_(desktop) {}
        [[nodiscard]] QString introspect(const QString&) const override { return {}; }
        bool handleMessage(const QDBusMessage& message, const QDBusConnection&) override;

    private:
        KeyringDesktop& desktop_;
    };

    QDBusMessage call(
        const QString& interface,
        const QString& method,
        const QVariantList& arguments,
        const QString& path = QStringLiteral("/org/freedesktop/secrets"));
    /// Opens the session that transfers secrets.
    QDBusObjectPath openSession();

    QDBusConnection bus_;
    Prompter prompter_{*this};
    std::vector<QDBusMessage> dialogs_;
};

} // namespace orvel::test
