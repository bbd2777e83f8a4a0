// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"
#include "platform/InstanceRegistry.h"

#include <memory>
#include <string>

namespace orvel::test {

constexpr auto testIdentifier = "app.test.Registry";

/// A registry, and the copies around it.
class InstanceRegistrySubject : public tavrin::Interface {
public:
    [[nodiscard]] virtual InstanceRegistry& registry() = 0;
    virtual void destroyRegistry() = 0;
    /// Another copy runs from now on; under the identifier that it gives.
    [[nodiscard]] virtual std::string startFirstCopy() = 0;
    /// Another copy was started now.
    virtual void startSecondCopy() = 0;
    /// Whether that other copy was brought to the front.
    [[nodiscard]] virtual bool isOtherActivated() = 0;
};

/// This system's.
[[nodiscard]] std::unique_ptr<InstanceRegistrySubject> makeRealInstanceRegistry();

} // namespace orvel::test
