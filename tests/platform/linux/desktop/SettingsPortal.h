// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tests/platform/linux/BusService.h"
#include "tests/support/Program.h"

#include <QDBusMetaType>
#include <QDBusVariant>
#include <QMap>
#include <QVariantMap>

#include <unistd.h>

#include <string>
#include <vector>

namespace orvel::test {

/// A fake settings portal. Like the real one, it refuses a caller whose "/proc/PID/root" it cannot
/// open.
class SettingsPortal final {
public:
    using Settings = QMap<QString, QVariantMap>;

    explicit SettingsPortal(const std::string& address = "")
        : service_(
              QStringLiteral("org.freedesktop.portal.Desktop"),
              QStringLiteral("/org/freedesktop/portal/desktop"),
              [this](const QDBusMessage& call) { return answer(call); },
              address) {
        qDBusRegisterMetaType<Settings>();
    }

    /// Changes a setting and sends the signal.
    void set(const QString& space, const QString& key, const QVariant& value) {
        settings_[space][key] = value;
        service_.signal(
            QStringLiteral("org.freedesktop.portal.Settings"),
            QStringLiteral("SettingChanged"),
            {space, key, QVariant::fromValue(QDBusVariant(value))});
    }

    void setReducedMotion(uint value) {
        set(QStringLiteral("org.freedesktop.appearance"), QStringLiteral("reduced-motion"), value);
    }
    void setAnimations(bool areEnabled) {
        set(QStringLiteral("org.gnome.desktop.interface"),
            QStringLiteral("enable-animations"),
            areEnabled);
    }

    [[nodiscard]] int readings() const { return readings_; }
    [[nodiscard]] int refusals() const { return refusals_; }

private:
    /// Whether another process of this user can open the root folder of the process. Without root's
    /// right to examine any process, which the portal of an ordinary user does not have either.
    static bool canOpenRootOf(uint process) {
        std::vector<std::string> arguments = {
            "test", "-d", "/proc/" + std::to_string(process) + "/root/."};
        if (geteuid() == 0) {
            arguments.insert(arguments.begin(), {"setpriv", "--bounding-set=-sys_ptrace", "--"});
        }
        Program test({arguments, {}});
        return test.wait() == 0;
    }

    QDBusMessage answer(const QDBusMessage& call) {
        if (!canOpenRootOf(service_.processOf(call))) {
            ++refusals_;
            return call.createErrorReply(
                QDBusError::AccessDenied, QStringLiteral("Could not open the caller's root"));
        }
        ++readings_;
        Settings asked;
        for (const QString& space : call.arguments().value(0).toStringList()) {
            if (settings_.contains(space)) {
                asked.insert(space, settings_.value(space));
            }
        }
        return call.member() == QLatin1String("ReadAll")
                   ? call.createReply(QVariant::fromValue(asked))
                   : call.createErrorReply(QDBusError::UnknownMethod, QString());
    }

    Settings settings_;
    int readings_ = 0;
    int refusals_ = 0;
    BusService service_;
};

} // namespace orvel::test
