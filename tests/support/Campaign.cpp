// SPDX-License-Identifier: Apache-2.0
#include "tests/support/Campaign.h"

#include "core/Text.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <exception>
#include <iostream>

namespace orvel::test {

namespace {

std::int64_t numberFrom(const char* variable, std::int64_t otherwise) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing writes the environment meanwhile
    const char* text = std::getenv(variable);
    return text != nullptr && *text != '\0' ? std::stoll(text) : otherwise;
}

std::string counted(std::int64_t number, const char* what) {
    return fmt::format("{} {}{}", number, what, number == 1 ? "" : "s");
}

CampaignResult resultOf(const CampaignSeed& run, unsigned seed) {
    try {
        return run(seed);
    } catch (const std::exception& error) {
        return {1, {std::string("an exception: ") + error.what()}};
    }
}

} // namespace

void runCampaign(std::int64_t unitsInTest, const CampaignSeed& run) {
    const auto first = static_cast<unsigned>(numberFrom("ORVEL_CAMPAIGN_SEED", 1));
    const std::int64_t wanted = numberFrom("ORVEL_CAMPAIGN_UNITS", unitsInTest);
    std::int64_t seeds = 0;
    std::int64_t units = 0;
    std::int64_t findings = 0;
    // At most one seed per unit: the campaign runs the following seeds at the same time.
    for (; units < wanted && seeds < wanted; ++seeds) {
        const unsigned seed = first + static_cast<unsigned>(seeds);
        std::cout << fmt::format("campaign: seed {} after {}", seed, counted(units, "unit"))
                  << std::endl;
        const CampaignResult result = resultOf(run, seed);
        units += result.units;
        for (const std::string& finding : result.findings) {
            ++findings;
            std::cout << fmt::format(
                             "campaign: finding of seed {}: {}", seed, tavrin::onOneLine(finding))
                      << std::endl;
            ADD_FAILURE() << "seed " << seed << ": " << finding;
        }
    }
    std::cout << fmt::format(
                     "campaign: {}, {}, {}",
                     counted(seeds, "seed"),
                     counted(units, "unit"),
                     counted(findings, "finding"))
              << std::endl;
}

} // namespace orvel::test
