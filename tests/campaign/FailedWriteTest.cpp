// SPDX-License-Identifier: Apache-2.0
//
// Scans, writers of settings and updates whose calls that write fail: every one in turn.
#include "platform/Platform.h"
#include "tests/campaign/FailedWrites.h"
#include "tests/campaign/FailingScans.h"
#include "tests/campaign/PublishedUpdate.h"
#include "tests/campaign/SettingsChanges.h"
#include "tests/campaign/UnfinishedSettings.h"
#include "tests/support/Campaign.h"
#include "tests/support/Program.h"
#include "tests/support/TemporaryDirectory.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <cstddef>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>

namespace orvel::test {

namespace {

constexpr const char* name = "failing";
constexpr unsigned changesSeed = 2;
constexpr std::chrono::minutes longestRun(2);

std::string content(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// What all programs have in common.
class FailingProgram {
public:
    explicit FailingProgram(const std::string& program) : calls_(directory_ / "calls", program) {}

protected:
    void begin(const CallFault& fault) {
        result_ = {};
        story_ = describe(fault);
    }

    void find(const std::string& what) {
        result_.findings.push_back(fmt::format("{} ({})", what, story_));
    }

    void checkEnd(int status, const std::string& errors, const std::string& path) {
        if (status == 0) {
            return;
        }
        if (status != 1) {
            find(fmt::format("it ended with status {}: {}", status, errors));
        } else if (const std::string wrong = wrongAboutWrite(errors, {path}); !wrong.empty()) {
            find(wrong);
        }
    }

    // NOLINTBEGIN(cppcoreguidelines-non-private-member-variables-in-classes)
    TemporaryDirectory directory_;
    FaultAtCall calls_;
    std::string story_;
    CampaignResult result_;
    // NOLINTEND(cppcoreguidelines-non-private-member-variables-in-classes)
};

class FailingWriters final : private FailingProgram {
public:
    using Values = SettingsChanges::Values;

    FailingWriters() : FailingProgram("campaign-target") {}

    CallCounts count() {
        reset();
        Program writer(options(calls_.counting()));
        if (writer.wait() != 0) {
            throw std::runtime_error("a writer without a fault failed: " + writer.errors());
        }
        return calls_.counts();
    }

    CampaignResult run(const CallFault& fault) {
        begin(fault);
        reset();
        {
            Program writer(options(calls_.with(fault)));
            if (!writer.waitFor(longestRun)) {
                find("the writer does not end");
                return result_;
            }
            checkEnd(writer.wait(), writer.errors(), folder().string());
            // The writer prints a character after each change that was confirmed.
            check(static_cast<int>(writer.output().size()));
        }
        Program last(options({}));
        if (last.wait() != 0) {
            find("the last writer failed: " + last.errors());
        }
        check(SettingsChanges::count);
        for (const auto& entry : std::filesystem::directory_iterator(folder())) {
            const std::string other = entry.path().filename();
            if (other != "defaults.conf" && !mayStayBehind(other, "defaults.conf")) {
                find("left behind beside the settings: " + other);
            }
        }
        return result_;
    }

private:
    [[nodiscard]] std::filesystem::path folder() const { return directory_ / "settings"; }
    [[nodiscard]] std::filesystem::path file() const { return folder() / "defaults.conf"; }

    void reset() const { std::filesystem::remove_all(folder()); }

    [[nodiscard]] Program::Options
    options(const std::map<std::string, std::string>& environment) const {
        Program::Options options;
        options.arguments = {
            CAMPAIGN_TARGET, "settings", file().string(), name, std::to_string(changesSeed)};
        options.environment = environment;
        return options;
    }

    /// The settings must be those after the confirmed changes, or after one change more.
    void check(int confirmed) {
        SettingsChanges changes(name, changesSeed);
        Values expected;
        for (int change = 0; change < confirmed; ++change) {
            changes.next().applyTo(expected);
        }
        Values further = expected;
        if (confirmed < SettingsChanges::count) {
            changes.next().applyTo(further);
        }
        Values stored;
        try {
            const auto defaults = makeUserDefaults(file());
            for (int number = 0; number < SettingsChanges::keys; ++number) {
                const std::string key = SettingsChanges::key(name, number);
                if (auto value = defaults->value(key)) {
                    stored.emplace(key, *std::move(value));
                }
            }
        } catch (const std::exception& error) {
            find(std::string("the settings cannot be read: ") + error.what());
            return;
        }
        if (stored != expected && stored != further) {
            find(fmt::format("after {} confirmed changes, a setting is lost or wrong", confirmed));
        }
    }
};

class FailingUpdates final : private FailingProgram {
public:
    explicit FailingUpdates(bool refusesUnnamedFiles) : FailingProgram("campaign-target") {
        if (refusesUnnamedFiles) {
            calls_.refuseUnnamedFiles();
        }
        calls_.replaceSystemCertificates(published_.certificates());
        std::filesystem::create_directory(appImage_.parent_path());
    }

    CallCounts count() {
        reset();
        Program program(options(calls_.counting()));
        if (program.wait() != 0) {
            throw std::runtime_error("an update without a fault failed: " + program.errors());
        }
        return calls_.counts();
    }

    CampaignResult run(const CallFault& fault) {
        begin(fault);
        reset();
        {
            Program program(options(calls_.with(fault)));
            if (!program.waitFor(longestRun)) {
                find("the update does not end");
                return result_;
            }
            const int status = program.wait();
            checkEnd(status, program.errors(), appImage_.parent_path().string());
            check(status == 0);
            // A file that cannot be removed is removed by the next update.
            if (fault.kind != CallKind::Remove) {
                checkFiles("after the fault");
            }
        }
        Program last(options({}));
        if (last.wait() != 0) {
            find("the last update failed: " + last.errors());
        }
        check(true);
        checkFiles("after the last update");
        return result_;
    }

private:
    static constexpr mode_t mode = 0700;

    void reset() {
        // With the folder that the program otherwise makes in place of a mounted AppImage.
        std::filesystem::create_directories(directory_ / "Downloads" / "mounted");
        std::filesystem::remove(appImage_);
        std::ofstream(appImage_) << old_;
        chmod(appImage_.c_str(), mode);
    }

    [[nodiscard]] Program::Options
    options(const std::map<std::string, std::string>& environment) const {
        Program::Options options = published_.installer(appImage_, directory_ / "Downloads");
        options.environment = environment;
        return options;
    }

    void check(bool mustBeNew) {
        const std::string now = content(appImage_);
        if (now != published_.update() && (mustBeNew || now != old_)) {
            find(fmt::format("the program has {} wrong bytes", now.size()));
        }
        struct stat status {};
        if (stat(appImage_.c_str(), &status) != 0 || (status.st_mode & 0777U) != mode) {
            find(fmt::format("the mode of the program is {:o}", status.st_mode));
        }
    }

    void checkFiles(const std::string& when) {
        for (const auto& entry : std::filesystem::directory_iterator(appImage_.parent_path())) {
            if (entry.path() != appImage_) {
                find(fmt::format(
                    "left behind beside the program {}: {}",
                    when,
                    entry.path().filename().string()));
            }
        }
    }

    PublishedUpdate published_;
    const std::string old_ = "the old version";
    std::filesystem::path appImage_ = directory_ / "apps" / "Agent.AppImage";
};

} // namespace

TEST(FailedWriteTest, AScanLosesNothingAndNamesTheFileAndTheReason) {
    constexpr WritingCalls calls{26, 26, 17, 88, 130, 14};
    FailingScans scans;
    EXPECT_EQ(missingWrites(calls, scans.count()), "");
    const FaultList faults = failingWrites(calls);
    runCampaign(4, [&](unsigned seed) {
        const auto check = [&scans](const CallFault&, const FailingScans::Run& run) {
            const std::string text = run.error() + run.errors;
            // SQLite's own sentences are kept.
            return run.status == 0 || text.starts_with("sqlite ")
                       ? std::string()
                       : wrongAboutWrite(text, scans.folders());
        };
        return scans.run(faults.of(seed), check);
    });
}

TEST(FailedWriteTest, ASettingsWriterLosesNothingAndNamesTheFileAndTheReason) {
    constexpr WritingCalls calls{24, 22, 9, 88, 42, 8};
    FailingWriters writers;
    EXPECT_EQ(missingWrites(calls, writers.count()), "");
    const FaultList faults = failingWrites(calls);
    runCampaign(4, [&](unsigned seed) { return writers.run(faults.of(seed)); });
}

TEST(FailedWriteTest, AnUpdateIsInstalledOrNotAndNamesTheFileAndTheReason) {
    constexpr WritingCalls calls{24, 2, 3, 4, 4, 3};
    FailingUpdates updates(false);
    FailingUpdates named(true);
    for (FailingUpdates* const kind : {&updates, &named}) {
        const CallCounts counts = kind->count();
        EXPECT_EQ(missingWrites(calls, counts), "");
        // A function of the program with the name of a call would hide the call.
        EXPECT_GT(counts.at(static_cast<std::size_t>(CallKind::Rename)), 0U);
        EXPECT_GT(counts.at(static_cast<std::size_t>(CallKind::Synchronize)), 0U);
    }
    const FaultList faults = failingWrites(calls);
    // First with files without a name, then without them.
    runCampaign(4, [&](unsigned seed) {
        const bool isNamed = (seed - 1) / faults.size() % 2 == 1;
        return (isNamed ? named : updates).run(faults.of(seed));
    });
}

} // namespace orvel::test
