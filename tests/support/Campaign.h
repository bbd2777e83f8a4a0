// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace orvel::test {

/// What one seed did: so many units, such as kills, and a sentence for each violation.
struct CampaignResult {
    std::int64_t units = 1;
    std::vector<std::string> findings;
};

using CampaignSeed = std::function<CampaignResult(unsigned)>;

/// Runs one seed after the other, until `unitsInTest` units are done. In a campaign
/// (tools/dev/campaign), the variables ORVEL_CAMPAIGN_SEED and ORVEL_CAMPAIGN_UNITS give the first
/// seed and the number of units.
///
/// Prints what the campaign reads. Each finding, and each exception, fails the running test.
void runCampaign(std::int64_t unitsInTest, const CampaignSeed& run);

} // namespace orvel::test
