// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/controls/Symbol.h"

#include <QColor>
#include <QIcon>
#include <QIconEngine>
#include <QImage>
#include <QPainter>
#include <QPixmap>
#include <QPixmapCache>
#include <QPoint>
#include <QString>
#include <QSvgRenderer>

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <utility>

// Registers the drawings: the linker drops a static library's resources without this call. The
// macro does not work inside a namespace.
static void loadDrawings() {
    Q_INIT_RESOURCE(icons);
}

namespace orvel {

namespace {

/// In pixels: the sizes used by panels, buttons and tabs, at single and double density.
constexpr std::array iconSizes{16, 22, 24, 32, 44, 48, 64, 96};

QString fileName(Symbol symbol) {
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

/// Parses a drawing once and renders it in any size.
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

/// Renders each size on first use: most sizes are never requested, and rendering them at start-up
/// would delay the tray icon.
class DrawnIcon final : public QIconEngine {
public:
    using Draw = std::function<QImage(int pixels)>;

    explicit DrawnIcon(Draw draw) : draw_(std::move(draw)) {}

    [[nodiscard]] QIconEngine* clone() const override { return new DrawnIcon(*this); }

    QList<QSize> availableSizes(QIcon::Mode, QIcon::State) override {
        QList<QSize> sizes;
        for (const int size : iconSizes) {
            sizes.append(QSize(size, size));
        }
        return sizes;
    }

    QSize actualSize(const QSize& size, QIcon::Mode, QIcon::State) override {
        const int side = qMin(size.width(), size.height());
        return {side, side};
    }

    QPixmap pixmap(const QSize& size, QIcon::Mode, QIcon::State) override {
        const int pixels = qMin(size.width(), size.height());
        if (pixels <= 0) {
            return {};
        }
        QPixmap& pixmap = drawn_[pixels];
        if (pixmap.isNull()) {
            pixmap = QPixmap::fromImage(draw_(pixels));
        }
        return pixmap;
    }

    void
    paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State state) override {
        QRect square(QPoint(), actualSize(rect.size(), mode, state));
        square.moveCenter(rect.center());
        const qreal ratio = painter->device()->devicePixelRatioF();
        painter->drawPixmap(square, pixmap(square.size() * ratio, mode, state));
    }

private:
    Draw draw_;
    std::map<int, QPixmap> drawn_;
};

QImage tinted(QImage shape, const QColor& color) {
    QPainter painter(&shape);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(shape.rect(), color);
    return shape;
}

/// Widens the shape by `distance` to both sides.
QImage spread(const QImage& image, QPoint distance) {
    QImage result(image.size(), QImage::Format_ARGB32_Premultiplied);
    result.fill(Qt::transparent);
    QPainter painter(&result);
    const int steps = distance.manhattanLength();
    for (int step = -steps; step <= steps; ++step) {
        painter.drawImage(distance * step / steps, image);
    }
    return result;
}

QImage withRim(const QImage& shape, const QColor& color) {
    // One pixel at usual tray sizes.
    const int width = qMax(1, shape.width() / 24);
    const QColor opposite = color.lightnessF() < 0.5 ? Qt::white : Qt::black;
    const QImage rim = tinted(shape, opposite);
    QImage image = spread(spread(rim, {width, 0}), {0, width});
    QPainter painter(&image);
    painter.drawImage(0, 0, tinted(shape, color));
    return image;
}

} // namespace

QPixmap symbolPixmap(Symbol symbol, int size, const QColor& color, double ratio) {
    const int pixels = qRound(size * ratio);
    const QString key = QStringLiteral("orvel/%1/%2/%3/%4")
                            .arg(fileName(symbol))
                            .arg(pixels)
                            .arg(ratio)
                            .arg(color.rgba(), 8, 16);
    QPixmap pixmap;
    if (!QPixmapCache::find(key, &pixmap)) {
        pixmap = QPixmap::fromImage(tinted(Drawing(fileName(symbol)).image(pixels), color));
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
    const auto drawn = std::make_shared<Drawing>(fileName(symbol));
    return QIcon(
        new DrawnIcon([drawn, color](int pixels) { return withRim(drawn->image(pixels), color); }));
}

QIcon symbolTemplateIcon(Symbol symbol) {
    QIcon icon = symbolIcon(symbol, Qt::black);
    icon.setIsMask(true);
    return icon;
}

QIcon applicationIcon() {
    return QIcon(new DrawnIcon([drawn = std::shared_ptr<Drawing>()](int pixels) mutable {
        if (!drawn) {
            drawn = std::make_shared<Drawing>(QStringLiteral("app.orvel.OrvelAgent"));
        }
        return drawn->image(pixels);
    }));
}

} // namespace orvel
