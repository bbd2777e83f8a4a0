// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"
#include "platform/InstanceRegistry.h"

#include <memory>
#include <string>

namespace orvel::test {

constexpr auto testIdentifier = "app.test.Registry";

/// A registry and other copies of the program.
class InstanceRegistrySubject : public tavrin::Interface {
public:
    [[nodiscard]] virtual InstanceRegistry& registry() = 0;
    virtual void destroyRegistry() = 0;
    /// Starts another copy before this one and returns its identifier.
    [[nodiscard]] virtual std::string startFirstCopy() = 0;
    /// Starts another copy after this one.
    virtual void startSecondCopy() = 0;
    /// Whether the first copy was brought to the front.
    [[nodiscard]] virtual bool isOtherActivated() = 0;
};

[[nodiscard]] std::unique_ptr<InstanceRegistrySubject> makeRealInstanceRegistry();

} // namespace orvel::test
