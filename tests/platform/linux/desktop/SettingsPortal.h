// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/FileDescriptor.h"
#include "tests/platform/linux/BusService.h"
#include "tests/platform/linux/desktop/PtraceRight.h"

#include <QDBusMetaType>
#include <QDBusVariant>
#include <QMap>
#include <QVariantMap>

#include <fcntl.h>

#include <string>
#include <thread>

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
    /// Whether a thread without root's right to examine any process can open the root folder of the
    /// process. The portal of an ordinary user does not have that right either.
    static bool canOpenRootOf(uint process) {
        bool canOpen = false;
        std::thread([&] {
            dropPtraceRight();
            const std::string folder = "/proc/" + std::to_string(process) + "/root";
            canOpen =
                tavrin::FileDescriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
                    .isOpen();
        }).join();
        return canOpen;
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
