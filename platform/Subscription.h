// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"

namespace orvel {

/// Unsubscribes a callback when destroyed. May outlive the object it was subscribed to.
class Subscription : public tavrin::Interface {};

} // namespace orvel
