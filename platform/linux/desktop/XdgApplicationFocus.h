// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/ApplicationFocus.h"

namespace orvel {

/// These desktops have no prompt of the system's for which a program must come to the front, and
/// show no icon of ours outside the tray: the activation policy is only kept.
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
