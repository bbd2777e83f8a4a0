// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/WindowGeometry.h"

#include "OrvelAgent/base/Worker.h"
#include "core/UserDefaults.h"

#include <QDataStream>
#include <QGuiApplication>
#include <QScreen>
#include <QWidget>

#include <algorithm>
#include <exception>
#include <utility>

namespace orvel {

namespace {

std::string keyOf(const QWidget& window) {
    return "window." + window.objectName().toStdString();
}

/// Reads the frame from the format that `QWidget::saveGeometry` writes.
bool isOffscreen(const QByteArray& geometry) {
    QDataStream stream(geometry);
    stream.setVersion(QDataStream::Qt_4_0);
    quint32 magic = 0;
    quint32 version = 0;
    QRect frame;
    stream >> magic >> version >> frame;
    const auto screens = QGuiApplication::screens();
    return std::ranges::none_of(screens, [&](const QScreen* screen) {
        return screen->availableGeometry().intersects(frame);
    });
}

} // namespace

WindowGeometry::WindowGeometry(tavrin::UserDefaults& defaults) : defaults_(defaults) {}

WindowGeometry::~WindowGeometry() {
    // Moved, because `write` resets the member when the last write has ended.
    if (const auto worker = std::move(worker_)) {
        worker->stop();
    }
}

bool WindowGeometry::restore(QWidget& window) const {
    const auto stored = storedValue<std::string>(defaults_, keyOf(window));
    const auto geometry = QByteArray::fromBase64(QByteArray::fromStdString(stored.value_or("")));
    if (!window.restoreGeometry(geometry)) {
        return false;
    }
    if (const QScreen* primary = QGuiApplication::primaryScreen();
        primary && isOffscreen(geometry)) {
        // `restoreGeometry` would leave the window in a corner.
        window.move(primary->availableGeometry().center() - window.rect().center());
    }
    return true;
}

void WindowGeometry::save(const QWidget& window) {
    std::erase_if(writes_, [](const QCoro::Task<>& write) { return write.isReady(); });
    writes_.push_back(write(keyOf(window), window.saveGeometry().toBase64().toStdString()));
}

QCoro::Task<> WindowGeometry::write(std::string key, std::string geometry) {
    if (!worker_) {
        worker_ = std::make_unique<Worker>();
    }
    auto job = [defaults = &defaults_, key = std::move(key), geometry = std::move(geometry)] {
        try {
            defaults->set(key, geometry);
        } catch (const std::exception&) {
            // Not worth an error message: the window just opens at its default position.
        }
    };
    ++pendingWrites_;
    co_await worker_->run(std::move(job));
    if (--pendingWrites_ == 0) {
        worker_.reset();
    }
}

} // namespace orvel
