// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"

namespace orvel {

/// Brings the application's windows to the front. Main thread.
class ApplicationFocus : public tavrin::Interface {
public:
    /// How the desktop treats the application.
    enum class ActivationPolicy {
        /// An application with windows, which may come to the front by itself.
        Regular,
        /// An application that is mainly a tray icon.
        Accessory,
    };

    [[nodiscard]] virtual ActivationPolicy activationPolicy() const = 0;
    virtual void setActivationPolicy(ActivationPolicy policy) = 0;

    /// Lets this application's windows come to the front even when another application has the
    /// focus.
    virtual void activate() = 0;
};

} // namespace orvel
