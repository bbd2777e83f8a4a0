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

/// The GNOME keyring of a private session, and its user, who is asked for the password in a dialog
/// while the keyring is locked. Unlocked and without the dialog at its start and its end.
///
/// Throws `std::runtime_error` outside of a private session, or when the keyring does.
class KeyringDesktop final {
public:
    KeyringDesktop();
    ~KeyringDesktop();
    KeyringDesktop(const KeyringDesktop&) = delete;
    KeyringDesktop& operator=(const KeyringDesktop&) = delete;

    void lock();
    void unlock();

    /// How many dialogs wait for the user.
    [[nodiscard]] std::size_t dialogs() const { return dialogs_.size(); }
    /// The user closes the dialogs that wait, without a password.
    void dismissDialogs();

    /// What any program finds: the values of items of that service and account.
    [[nodiscard]] std::vector<std::string>
    values(const std::string& service, const std::string& account);

    /// Another program keeps something under that name.
    void add(const std::string& service, const std::string& account, const std::string& value);

private:
    /// The program that shows the dialogs.
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
    /// Secrets are handed over in a session.
    QDBusObjectPath openSession();

    QDBusConnection bus_;
    Prompter prompter_{*this};
    std::vector<QDBusMessage> dialogs_;
};

} // namespace orvel::test
