// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orvel {

/// What the tray shows of the agent's status.
enum class StatusIcon { Brand, BrandAlert, Attention, Scanning, Paused };

} // namespace orvel
