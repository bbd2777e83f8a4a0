// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orvel {

enum class StatusIcon { Brand, BrandAlert, Attention, Scanning, Paused };

} // namespace orvel
