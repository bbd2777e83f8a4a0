// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/panel/StatusIconLabel.h"

#include "OrvelAgent/ui/controls/Theme.h"

#include <QApplication>
#include <QIcon>

namespace orvel::StatusIconLabel {

Symbol symbol(StatusIcon status) {
    switch (status) {
    case StatusIcon::Brand:
        break;
    case StatusIcon::BrandAlert:
        return Symbol::StatusIconAlert;
    case StatusIcon::Attention:
        return Symbol::ExclamationMarkTriangleFill;
    case StatusIcon::Scanning:
        return Symbol::ArrowTriangle2CirclePath;
    case StatusIcon::Paused:
        return Symbol::PauseCircle;
    }
    return Symbol::StatusIcon;
}

QIcon icon(StatusIcon status) {
    return symbolTrayIcon(
        symbol(status), Theme::color(Theme::Role::Primary, QApplication::palette()));
}

QIcon templateIcon(StatusIcon status) {
    return symbolTemplateIcon(symbol(status));
}

} // namespace orvel::StatusIconLabel
