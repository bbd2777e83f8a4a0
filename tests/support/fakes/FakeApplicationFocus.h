// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/ApplicationFocus.h"

#include <vector>

namespace orvel::test {

/// Records all calls.
class FakeApplicationFocus final : public ApplicationFocus {
public:
    ActivationPolicy policy = ActivationPolicy::Accessory;
    /// Every policy that was set.
    std::vector<ActivationPolicy> policies;
    int activations = 0;

    [[nodiscard]] ActivationPolicy activationPolicy() const override { return policy; }

    void setActivationPolicy(ActivationPolicy newPolicy) override {
        policy = newPolicy;
        policies.push_back(newPolicy);
    }

    void activate() override { ++activations; }
};

} // namespace orvel::test
