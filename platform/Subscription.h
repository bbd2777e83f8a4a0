// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"

namespace orvel {

/// Stands for a callback that has been subscribed; unsubscribes it when destroyed. May outlive what
/// it was subscribed to.
class Subscription : public tavrin::Interface {};

} // namespace orvel
