// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/ApplicationFocus.h"

namespace orvel {

/// Uses the shared `NSApplication`.
class AppKitApplicationFocus final : public ApplicationFocus {
public:
    [[nodiscard]] ActivationPolicy activationPolicy() const override;
    void setActivationPolicy(ActivationPolicy policy) override;
    void activate() override;
};

} // namespace orvel
