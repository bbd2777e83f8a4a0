// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"
#include "platform/MotionPreference.h"

#include <memory>

namespace orvel::test {

/// A preference and the setting behind it.
class MotionPreferenceSubject : public tavrin::Interface {
public:
    [[nodiscard]] virtual MotionPreference& preference() = 0;
    virtual void destroyPreference() = 0;
    virtual void setReducesMotion(bool reduces) = 0;
};

[[nodiscard]] std::unique_ptr<MotionPreferenceSubject> makeRealMotionPreference();

} // namespace orvel::test
