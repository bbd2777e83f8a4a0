// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tests/platform/linux/BusService.h"

#include <QDBusMetaType>
#include <QDBusVariant>
#include <QMap>
#include <QVariantMap>

#include <string>

namespace orvel::test {

/// A fake settings portal.
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

private:
    QDBusMessage answer(const QDBusMessage& call) {
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
    BusService service_;
};

} // namespace orvel::test
