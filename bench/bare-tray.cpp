// SPDX-License-Identifier: Apache-2.0

// A minimal program with a tray icon: the reference for the agent's start time and memory.

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
