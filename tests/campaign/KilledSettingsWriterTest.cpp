// SPDX-License-Identifier: Apache-2.0
//
// Processes that write settings and are killed at random calls, while another process writes to the
// same file.
#include "platform/Platform.h"
#include "tests/campaign/SettingsChanges.h"
#include "tests/campaign/UnfinishedSettings.h"
#include "tests/support/Campaign.h"
#include "tests/support/Program.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/linux/FaultAtCall.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <stdexcept>
#include <string>

namespace orvel::test {

namespace {

using Values = SettingsChanges::Values;

constexpr int killsPerSeed = 10;
/// Only for a last writer that hangs; it usually ends within two seconds. SettingsUserDefaultsTest
/// checks that the lock file of a killed writer delays no other.
constexpr std::chrono::minutes hangGuard(5);
constexpr const char* killedName = "killed";
constexpr const char* otherName = "other";

Program::Options
writerOptions(const std::filesystem::path& file, const std::string& name, unsigned seed) {
    Program::Options options;
    options.arguments = {CAMPAIGN_TARGET, "settings", file.string(), name, std::to_string(seed)};
    return options;
}

/// The calls of a writer that starts with an existing file.
CallCounts countCalls(bool refusesUnnamedFiles) {
    const TemporaryDirectory directory;
    FaultAtCall calls(directory / "calls", "campaign-target");
    if (refusesUnnamedFiles) {
        calls.refuseUnnamedFiles();
    }
    for (int run = 0; run < 2; ++run) {
        Program::Options options = writerOptions(directory / "defaults.conf", killedName, 1);
        options.environment = calls.counting();
        Program writer(options);
        if (writer.wait() != 0) {
            throw std::runtime_error("a writer without a kill failed: " + writer.errors());
        }
    }
    return calls.counts();
}

class KilledWriters final {
public:
    explicit KilledWriters(unsigned seed) : random_(seed), refusesUnnamedFiles_(seed % 4 == 0) {
        if (refusesUnnamedFiles_) {
            calls_.refuseUnnamedFiles();
        }
    }

    CampaignResult run() {
        static const CallCounts counts = countCalls(false);
        static const CallCounts countsWithNames = countCalls(true);
        for (int kill = 0; kill < killsPerSeed && result_.findings.empty(); ++kill) {
            killOne(
                FaultAtCall::chooseKill(refusesUnnamedFiles_ ? countsWithNames : counts, random_));
        }
        checkFiles();
        return result_;
    }

private:
    void killOne(const CallFault& point) {
        story_ = describe(point);
        const auto seed = static_cast<unsigned>(random_());
        const auto otherSeed = static_cast<unsigned>(random_());
        const bool hasOther = random_() % 4 == 0;
        hasHadOther_ = hasHadOther_ || hasOther;
        std::unique_ptr<Program> other;
        if (hasOther) {
            other = std::make_unique<Program>(writerOptions(file_, otherName, otherSeed));
        }
        Program::Options options = writerOptions(file_, killedName, seed);
        options.environment = calls_.with(point);
        Program writer(options);
        const int status = writer.wait();
        if (status == 128 + SIGKILL) {
            ++result_.units;
        } else if (status != 0) {
            find(fmt::format("a writer ended with status {}: {}", status, writer.errors()));
        }
        if (other != nullptr) {
            if (const int otherStatus = other->wait(); otherStatus != 0) {
                find(fmt::format(
                    "the other writer ended with status {}: {}", otherStatus, other->errors()));
            }
        }
        // The writer prints a character after each change that was confirmed.
        check(
            SettingsChanges(killedName, seed),
            static_cast<int>(writer.output().size()),
            hasOther ? std::optional(otherSeed) : std::nullopt);
    }

    /// The settings must be those after the confirmed changes, or after one change more.
    void check(SettingsChanges changes, int confirmed, std::optional<unsigned> otherSeed) {
        for (int change = 0; change < confirmed; ++change) {
            changes.next().applyTo(values_);
        }
        Values further = values_;
        if (confirmed < SettingsChanges::count) {
            changes.next().applyTo(further);
        }
        if (otherSeed) {
            SettingsChanges others(otherName, *otherSeed);
            for (int change = 0; change < SettingsChanges::count; ++change) {
                const SettingsChanges::Change made = others.next();
                made.applyTo(values_);
                made.applyTo(further);
            }
        }
        const Values stored = storedValues();
        if (stored != values_ && stored != further) {
            find(fmt::format("after {} confirmed changes, a setting is lost or wrong", confirmed));
        }
        values_ = stored;
    }

    [[nodiscard]] Values storedValues() {
        Values values;
        try {
            const auto defaults = makeUserDefaults(file_);
            for (const char* name : {killedName, otherName}) {
                for (int number = 0; number < SettingsChanges::keys; ++number) {
                    const std::string key = SettingsChanges::key(name, number);
                    if (auto value = defaults->value(key)) {
                        values.emplace(key, *std::move(value));
                    }
                }
            }
        } catch (const std::exception& error) {
            find(std::string("the settings cannot be read: ") + error.what());
        }
        return values;
    }

    void checkFiles() {
        // Last changes by a process that nothing disturbs.
        Program last(writerOptions(file_, killedName, 1));
        if (const auto status = last.waitFor(hangGuard); !status) {
            find("the last writer hangs");
        } else if (*status != 0) {
            find("the last writer failed: " + last.errors());
        }
        for (const auto& entry : std::filesystem::directory_iterator(directory_.path())) {
            const std::string name = entry.path().filename();
            if (name != "defaults.conf" && name != "calls" &&
                !(hasHadOther_ && mayStayBehind(name, "defaults.conf"))) {
                find("left behind beside the settings: " + name);
            }
        }
    }

    void find(const std::string& what) {
        result_.findings.push_back(fmt::format("{} ({})", what, story_));
    }

    std::mt19937 random_;
    bool refusesUnnamedFiles_;
    TemporaryDirectory directory_;
    std::filesystem::path file_ = directory_ / "defaults.conf";
    FaultAtCall calls_{directory_ / "calls", "campaign-target"};
    /// Whether two writers ever ran at the same time.
    bool hasHadOther_ = false;
    /// What the file must contain.
    Values values_;
    std::string story_;
    CampaignResult result_{0, {}};
};

} // namespace

TEST(KilledSettingsWriterTest, NoConfirmedSettingIsLost) {
    runCampaign(10, [](unsigned seed) { return KilledWriters(seed).run(); });
}

} // namespace orvel::test
