// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QApplication>
#include <QHelpEvent>
#include <QTextDocument>
#include <QToolTip>
#include <QWidget>

#include <string>

namespace orvel::test {

/// What the user reads when the pointer rests on the widget: the text of the tool tip after Qt has
/// rendered the markup in it.
inline std::string toolTipText(QWidget& widget) {
    QToolTip::hideText();
    const QPoint position(1, 1);
    QHelpEvent event(QEvent::ToolTip, position, widget.mapToGlobal(position));
    QApplication::sendEvent(&widget, &event);
    QTextDocument document;
    if (const QString text = QToolTip::text(); Qt::mightBeRichText(text)) {
        document.setHtml(text);
    } else {
        document.setPlainText(text);
    }
    return document.toPlainText().toStdString();
}

} // namespace orvel::test
