// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QtGlobal>

namespace orvel::test {

/// For tests with a tray icon on the offscreen platform: ignores Qt's warning that it has no tray.
class TrayOfNoPlatform final {
public:
    TrayOfNoPlatform() { others() = qInstallMessageHandler(passOn); }
    ~TrayOfNoPlatform() { qInstallMessageHandler(others()); }
    TrayOfNoPlatform(const TrayOfNoPlatform&) = delete;
    TrayOfNoPlatform& operator=(const TrayOfNoPlatform&) = delete;

private:
    static QtMessageHandler& others() {
        static QtMessageHandler handler = nullptr;
        return handler;
    }

    static void passOn(QtMsgType type, const QMessageLogContext& context, const QString& message) {
        if (!message.contains(QLatin1String("::systemTrayWindowChanged"))) {
            others()(type, context, message);
        }
    }
};

} // namespace orvel::test
