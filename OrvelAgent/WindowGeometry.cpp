// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/WindowGeometry.h"

#include "OrvelAgent/Worker.h"
#include "core/Errors.h"
#include "core/UserDefaults.h"

#include <QCoroTask>
#include <QWidget>

#include <utility>

namespace orvel {

namespace {

std::string keyOf(const QWidget& window) {
    return "window." + window.objectName().toStdString();
}

QCoro::Task<>
write(Worker* worker, tavrin::UserDefaults* defaults, std::string key, std::string geometry) {
    auto job = [defaults, key = std::move(key), geometry = std::move(geometry)] {
        try {
            defaults->setString(key, geometry);
        } catch (const tavrin::PlatformError&) {
            // The window opens at its usual place next time.
        }
    };
    co_await worker->run(std::move(job));
}

} // namespace

WindowGeometry::WindowGeometry(tavrin::UserDefaults& defaults) : defaults_(defaults) {}

WindowGeometry::~WindowGeometry() {
    if (worker_) {
        worker_->stop();
    }
}

bool WindowGeometry::restore(QWidget& window) const {
    const auto stored = defaults_.string(keyOf(window));
    return stored &&
           window.restoreGeometry(QByteArray::fromBase64(QByteArray::fromStdString(*stored)));
}

void WindowGeometry::save(const QWidget& window) {
    if (!worker_) {
        worker_ = std::make_unique<Worker>();
    }
    write(worker_.get(), &defaults_, keyOf(window), window.saveGeometry().toBase64().toStdString());
}

} // namespace orvel
