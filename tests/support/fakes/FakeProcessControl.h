// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/ProcessControl.h"

namespace orvel::test {

/// Records all calls.
class FakeProcessControl final : public ProcessControl {
public:
    bool hasDebugger = false;
    int relaunches = 0;
    int terminations = 0;

    void scheduleRelaunch() override { ++relaunches; }
    void terminate() override { ++terminations; }
    [[nodiscard]] bool isDebuggerAttached() const override { return hasDebugger; }
};

} // namespace orvel::test
