// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/Symbol.h"

#include <QColor>
#include <QIcon>
#include <QImage>
#include <QPainter>
#include <QPixmap>
#include <QPixmapCache>
#include <QString>
#include <QSvgRenderer>

#include <array>

// The drawings are compiled in, and a library's are found only after this call, which must not
// stand in a namespace.
static void loadDrawings() {
    Q_INIT_RESOURCE(icons);
}

namespace orvel {

namespace {

/// In pixels: what panels, buttons and tabs ask for, and the same on screens of double density.
constexpr std::array iconSizes{16, 22, 24, 32, 44, 48, 64, 96};

QString drawing(Symbol symbol) {
    switch (symbol) {
    case Symbol::StatusIcon:
        return QStringLiteral("StatusIcon");
    case Symbol::StatusIconAlert:
        return QStringLiteral("StatusIconAlert");
    case Symbol::ExclamationMarkTriangleFill:
        return QStringLiteral("exclamationmark.triangle.fill");
    case Symbol::ArrowTriangle2CirclePath:
        return QStringLiteral("arrow.triangle.2.circlepath");
    case Symbol::PauseCircle:
        return QStringLiteral("pause.circle");
    case Symbol::ExclamationMarkTriangle:
        return QStringLiteral("exclamationmark.triangle");
    case Symbol::Gear:
        return QStringLiteral("gear");
    case Symbol::HandRaised:
        return QStringLiteral("hand.raised");
    case Symbol::DocOnDoc:
        return QStringLiteral("doc.on.doc");
    case Symbol::CheckMark:
        return QStringLiteral("checkmark");
    case Symbol::ClockArrowCirclePath:
        return QStringLiteral("clock.arrow.circlepath");
    }
    return {};
}

/// One of our drawings, read once for all sizes.
class Drawing final {
public:
    explicit Drawing(const QString& name)
        : renderer_((loadDrawings(), QStringLiteral(":/icons/%1.svg").arg(name))) {}

    [[nodiscard]] QImage image(int pixels) {
        QImage image(pixels, pixels, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        QPainter painter(&image);
        renderer_.render(&painter, QRectF(image.rect()));
        return image;
    }

private:
    QSvgRenderer renderer_;
};

QImage tinted(QImage shape, const QColor& color) {
    QPainter painter(&shape);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(shape.rect(), color);
    return shape;
}

QImage withRim(const QImage& shape, const QColor& color) {
    // A pixel on ordinary screens.
    const int width = qMax(1, shape.width() / 24);
    const QColor opposite = color.lightnessF() < 0.5 ? Qt::white : Qt::black;
    const QImage rim = tinted(shape, opposite);
    QImage image(shape.size(), QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    for (int x = -width; x <= width; ++x) {
        for (int y = -width; y <= width; ++y) {
            painter.drawImage(x, y, rim);
        }
    }
    painter.drawImage(0, 0, tinted(shape, color));
    return image;
}

} // namespace

QPixmap symbolPixmap(Symbol symbol, int size, const QColor& color, double ratio) {
    const int pixels = qRound(size * ratio);
    const QString key = QStringLiteral("orvel/%1/%2/%3/%4")
                            .arg(drawing(symbol))
                            .arg(pixels)
                            .arg(ratio)
                            .arg(color.rgba(), 8, 16);
    QPixmap pixmap;
    if (!QPixmapCache::find(key, &pixmap)) {
        pixmap = QPixmap::fromImage(tinted(Drawing(drawing(symbol)).image(pixels), color));
        pixmap.setDevicePixelRatio(ratio);
        QPixmapCache::insert(key, pixmap);
    }
    return pixmap;
}

QIcon symbolIcon(Symbol symbol, const QColor& color) {
    QIcon icon;
    for (const int size : iconSizes) {
        icon.addPixmap(symbolPixmap(symbol, size, color, 1));
    }
    return icon;
}

QIcon symbolTrayIcon(Symbol symbol, const QColor& color) {
    Drawing drawn(drawing(symbol));
    QIcon icon;
    for (const int size : iconSizes) {
        icon.addPixmap(QPixmap::fromImage(withRim(drawn.image(size), color)));
    }
    return icon;
}

QIcon symbolTemplateIcon(Symbol symbol) {
    QIcon icon = symbolIcon(symbol, Qt::black);
    icon.setIsMask(true);
    return icon;
}

QIcon applicationIcon() {
    Drawing drawn(QStringLiteral("app.orvel.OrvelAgent"));
    QIcon icon;
    for (const int size : iconSizes) {
        icon.addPixmap(QPixmap::fromImage(drawn.image(size)));
    }
    return icon;
}

} // namespace orvel
