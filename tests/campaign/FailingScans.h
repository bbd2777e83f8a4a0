// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tests/campaign/FaultList.h"
#include "tests/e2e/ScanHome.h"
#include "tests/support/Campaign.h"

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace orvel::test {

/// Scans of one small database, one for each fault, each followed by a scan without a fault.
class FailingScans final {
public:
    /// What a scan with a fault printed, and the status with which it ended.
    using Run = ScanHome::Run;
    /// What is wrong with the end of a scan with a fault, besides what is always checked.
    using Check = std::function<std::string(const CallFault&, const Run&)>;

    FailingScans();

    /// The folders to which a scan writes.
    [[nodiscard]] std::vector<std::string> folders() const;

    /// The calls of a scan without a fault. Throws if it fails.
    [[nodiscard]] CallCounts count();

    /// From here on, a library may end the program because it gets no memory.
    void allowAborts() { allowsAborts_ = true; }
    /// How often each library did.
    [[nodiscard]] const std::map<std::string, int>& aborts() const { return aborts_; }

    /// A scan with the fault ends with success or a sentence, and leaves no copy behind; then a
    /// scan without it brings the rest, and every message is stored once.
    [[nodiscard]] CampaignResult run(const CallFault& fault, const Check& check = {});

private:
    void reset();
    void checkEnd(const CallFault& fault, const Run& run);
    void checkFiles(const std::string& when);
    void find(const std::string& what);

    ScanHome home_;
    FaultAtCall calls_{home_ / "calls", "orvel-scan"};
    std::set<std::string> expected_;
    bool allowsAborts_ = false;
    std::map<std::string, int> aborts_;
    std::string story_;
    CampaignResult result_;
};

} // namespace orvel::test
