// SPDX-License-Identifier: Apache-2.0
//
// Processes that install an update over their own file and are killed at random calls.
#include "tests/campaign/PublishedUpdate.h"
#include "tests/support/Campaign.h"
#include "tests/support/FileContent.h"
#include "tests/support/Program.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/linux/FaultAtCall.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <random>
#include <string>
#include <utility>

namespace orvel::test {

namespace {

constexpr int killsPerSeed = 10;

class KilledUpdates final {
public:
    KilledUpdates(const PublishedUpdate& published, unsigned seed)
        : published_(published), random_(seed), mode_(seed % 3 == 0 ? 0700U : 0755U) {
        std::filesystem::create_directory(appImage_.parent_path());
        if (seed % 2 == 0) {
            calls_.refuseUnnamedFiles();
        }
        reset();
    }

    CampaignResult run() {
        if (const auto [status, errors] = install(calls_.counting()); status != 0) {
            find(fmt::format("an update without a kill ended with status {}: {}", status, errors));
            return result_;
        }
        const CallCounts counts = calls_.counts();
        reset();
        for (int kill = 0; kill < killsPerSeed && result_.findings.empty(); ++kill) {
            const CallFault point = FaultAtCall::chooseKill(counts, random_);
            story_ = describe(point);
            const auto [status, errors] = install(calls_.with(point));
            if (status == 128 + SIGKILL) {
                ++result_.units;
            } else if (status != 0) {
                find(fmt::format("an update ended with status {}: {}", status, errors));
            }
            check();
            if (contentOf(appImage_) == published_.update() && random_() % 2 == 0) {
                reset();
            }
        }
        if (const auto [status, errors] = install({}); status != 0) {
            find(fmt::format("the last update ended with status {}: {}", status, errors));
        }
        if (contentOf(appImage_) != published_.update()) {
            find("the last update did not replace the program");
        }
        check();
        checkFiles();
        return result_;
    }

private:
    void reset() {
        std::filesystem::remove(appImage_);
        writeFile(appImage_, old_);
        chmod(appImage_.c_str(), mode_);
    }

    std::pair<int, std::string> install(const std::map<std::string, std::string>& environment) {
        Program::Options options = published_.installer(appImage_, directory_ / "Downloads");
        options.environment = environment;
        Program program(options);
        const int status = program.wait();
        return {status, program.errors()};
    }

    void check() {
        const std::string now = contentOf(appImage_);
        if (now != old_ && now != published_.update()) {
            find(fmt::format("the program has {} wrong bytes", now.size()));
        }
        struct stat status {};
        if (stat(appImage_.c_str(), &status) != 0 || (status.st_mode & 0777U) != mode_) {
            find(fmt::format("the mode of the program is {:o}", status.st_mode));
        }
    }

    void checkFiles() {
        for (const auto& entry : std::filesystem::directory_iterator(appImage_.parent_path())) {
            if (entry.path() != appImage_) {
                find("left behind beside the program: " + entry.path().filename().string());
            }
        }
    }

    void find(const std::string& what) {
        result_.findings.push_back(story_.empty() ? what : fmt::format("{} ({})", what, story_));
    }

    const PublishedUpdate& published_;
    std::mt19937 random_;
    mode_t mode_;
    const std::string old_ = "the old version";
    TemporaryDirectory directory_;
    std::filesystem::path appImage_ = directory_ / "apps" / "Agent.AppImage";
    FaultAtCall calls_{directory_ / "calls", "campaign-target"};
    std::string story_;
    CampaignResult result_{0, {}};
};

} // namespace

TEST(KilledUpdateTest, TheProgramIsTheOldOrTheNewOne) {
    const PublishedUpdate published;
    runCampaign(10, [&](unsigned seed) { return KilledUpdates(published, seed).run(); });
}

} // namespace orvel::test
