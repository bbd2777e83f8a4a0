// SPDX-License-Identifier: Apache-2.0

// The least that a program with a tray icon costs: what the agent's start is measured against.

#include <QApplication>
#include <QSystemTrayIcon>

int main(int argc, char** argv) {
    const QApplication application(argc, argv);
    QPixmap image(22, 22);
    image.fill(Qt::darkGray);
    QSystemTrayIcon icon(image);
    icon.show();
    return QApplication::exec();
}
