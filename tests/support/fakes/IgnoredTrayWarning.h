// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QtGlobal>

namespace orvel::test {

/// For tests with a tray icon on the offscreen platform: ignores Qt's warning that it has no tray.
class IgnoredTrayWarning final {
public:
    IgnoredTrayWarning() { previousHandler() = qInstallMessageHandler(forwardOthers); }
    ~IgnoredTrayWarning() { qInstallMessageHandler(previousHandler()); }
    IgnoredTrayWarning(const IgnoredTrayWarning&) = delete;
    IgnoredTrayWarning& operator=(const IgnoredTrayWarning&) = delete;

private:
    static QtMessageHandler& previousHandler() {
        static QtMessageHandler handler = nullptr;
        return handler;
    }

    static void
    forwardOthers(QtMsgType type, const QMessageLogContext& context, const QString& message) {
        if (!message.contains(QLatin1String("::systemTrayWindowChanged"))) {
            previousHandler()(type, context, message);
        }
    }
};

} // namespace orvel::test
