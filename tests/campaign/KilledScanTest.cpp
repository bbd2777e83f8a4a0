// SPDX-License-Identifier: Apache-2.0
//
// Scans that are killed at random calls and continued by the next scan.
#include "tests/e2e/ScanHome.h"
#include "tests/support/Campaign.h"
#include "tests/support/linux/FaultAtCall.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace orvel::test {

namespace {

constexpr int maximumKillsPerSeed = 10;
/// For none, one, two and several batches.
constexpr std::array sampleSizes{40, 300, 700, 1600};

/// One home with one database.
class KilledScans final {
public:
    explicit KilledScans(unsigned seed) : random_(seed) {
        const int size = sampleSizes.at(
            std::uniform_int_distribution<std::size_t>(0, sampleSizes.size() - 1)(random_));
        home_.makeSample(
            {"--messages",
             std::to_string(size),
             "--seed",
             std::to_string(seed),
             "--no-two-chat",
             random_() % 2 == 0 ? "--keep-wal" : "--no-wal"});
        const std::multiset<std::string> guids = home_.sendableGuids();
        expected_ = {guids.begin(), guids.end()};
    }

    CampaignResult run() {
        const int status = scan(calls_.counting());
        if (status != 0) {
            find(fmt::format("a scan without a kill ended with status {}", status));
            return result_;
        }
        const CallCounts counts = calls_.counts();
        const std::size_t uploadsOfOneScan = uploads();
        home_.restartService();
        home_.forgetProgress();

        while (result_.units < maximumKillsPerSeed) {
            const CallFault point = FaultAtCall::chooseKill(counts, random_);
            const int killed = scan(calls_.with(point));
            if (killed != 128 + SIGKILL) {
                // It had less to do than the first scan, so it never came to that call.
                if (killed != 0) {
                    find(fmt::format("a scan after kills ended with status {}", killed));
                }
                break;
            }
            ++result_.units;
            story_ += (story_.empty() ? "" : ", ") + describe(point);
            // Its own copy, or the one of the process before, which it had not removed yet.
            if (const auto copies = home_.leftovers(); copies.size() > 1) {
                find(fmt::format("{} copies of the database exist", copies.size()));
            }
        }

        const ScanHome::Run last = home_.scan();
        if (last.status != 0) {
            find(fmt::format("the last scan ended with status {}: {}", last.status, last.errors));
        }
        checkMessages();
        if (uploads() > uploadsOfOneScan + static_cast<std::size_t>(result_.units)) {
            find(fmt::format(
                "{} uploads after {} kills, {} without",
                uploads(),
                result_.units,
                uploadsOfOneScan));
        }
        checkFiles();
        checkProgress();
        return result_;
    }

private:
    int scan(const std::map<std::string, std::string>& environment) {
        Program::Options options = home_.command();
        options.environment.insert(environment.begin(), environment.end());
        Program program(options);
        return program.wait();
    }

    [[nodiscard]] std::size_t uploads() {
        return home_.service().requestCount(ScanHome::ingestPath);
    }

    void checkMessages() {
        const std::vector<std::string> records = home_.storedRecords();
        const std::set<std::string> stored = home_.storedGuids();
        if (stored != expected_) {
            find(fmt::format("{} of {} messages are stored", stored.size(), expected_.size()));
        }
        if (records.size() != stored.size()) {
            find(fmt::format("{} records for {} messages", records.size(), stored.size()));
        }
    }

    void checkFiles() {
        for (const std::string& name : home_.leftovers()) {
            find("left behind among the temporary files: " + name);
        }
        const std::set<std::string> known{"state.conf", "state.conf.inuse"};
        for (const auto& entry : std::filesystem::directory_iterator(home_.state().parent_path())) {
            const std::string name = entry.path().filename();
            if (name.starts_with("state") && !known.contains(name)) {
                find("left behind beside the progress: " + name);
            }
        }
    }

    /// A further scan has nothing to send.
    void checkProgress() {
        const std::size_t before = uploads();
        const ScanHome::Run again = home_.scan();
        if (again.status != 0 || uploads() != before) {
            find(fmt::format(
                "a scan after the last one sent {} batches and ended with status {}",
                uploads() - before,
                again.status));
        }
    }

    void find(const std::string& what) {
        result_.findings.push_back(story_.empty() ? what : fmt::format("{} ({})", what, story_));
    }

    std::mt19937 random_;
    ScanHome home_;
    FaultAtCall calls_{home_ / "calls", "orvel-scan"};
    std::set<std::string> expected_;
    std::string story_;
    CampaignResult result_{0, {}};
};

} // namespace

TEST(KilledScanTest, EveryMessageIsStoredOnceAndNoCopyStaysBehind) {
    runCampaign(10, [](unsigned seed) { return KilledScans(seed).run(); });
}

} // namespace orvel::test
