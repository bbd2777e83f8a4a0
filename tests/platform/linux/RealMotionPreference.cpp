// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealMotionPreference.h"

#include "platform/linux/desktop/PortalMotionPreference.h"
#include "platform/linux/support/SessionBus.h"
#include "tests/platform/linux/desktop/SettingsPortal.h"
#include "tests/support/fakes/ManualClock.h"

namespace orvel::test {

namespace {

class PortalSubject final : public MotionPreferenceSubject {
public:
    MotionPreference& preference() override { return *preference_; }
    void destroyPreference() override { preference_.reset(); }
    void setReducesMotion(bool reduces) override { portal_.setReducedMotion(reduces ? 1 : 0); }

private:
    SettingsPortal portal_;
    ManualClock clock_;
    std::unique_ptr<MotionPreference> preference_ =
        std::make_unique<PortalMotionPreference>(clock_, [] { return nullptr; });
};

} // namespace

std::unique_ptr<MotionPreferenceSubject> makeRealMotionPreference() {
    return std::make_unique<PortalSubject>();
}

} // namespace orvel::test
