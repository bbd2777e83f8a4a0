// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/ApplicationFocus.h"

namespace orvel {

/// Only stores the activation policy: these desktops show no system prompts that need it, and no
/// icon of the agent outside the tray.
class XdgApplicationFocus final : public ApplicationFocus {
public:
    [[nodiscard]] ActivationPolicy activationPolicy() const override { return policy_; }
    void setActivationPolicy(ActivationPolicy policy) override { policy_ = policy; }
    /// Does nothing: windows ask to come to the front when they are shown or raised, and the
    /// desktop decides.
    void activate() override {}

private:
    ActivationPolicy policy_ = ActivationPolicy::Accessory;
};

} // namespace orvel
