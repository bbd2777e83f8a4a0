// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QLatin1String>
#include <QWidget>

namespace orvel {

/// Gives the object a name, by which it can be found. Returns the object.
template <typename Object>
Object* named(const char* name, Object* object) {
    object->setObjectName(QLatin1String(name));
    return object;
}

/// The layout of the widget, or a layout inside another one if the widget is null. `padding` is the
/// margin on all four sides.
template <typename Layout>
Layout* makeLayout(QWidget* widget, int spacing, int padding = 0) {
    auto* layout = new Layout(widget);
    layout->setContentsMargins(padding, padding, padding, padding);
    layout->setSpacing(spacing);
    return layout;
}

} // namespace orvel
