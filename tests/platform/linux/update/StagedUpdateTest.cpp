// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/update/StagedUpdate.h"

#include "core/Errors.h"
#include "platform/linux/update/UpdateError.h"
#include "tests/support/NeedsRoot.h"
#include "tests/support/SmallDisk.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/UnprivilegedUser.h"
#include "tests/support/UpdateSigner.h"
#include "tests/support/linux/SystemCalls.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <ios>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

namespace orvel {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using Use = StagedUpdate::Use;

std::string content(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// The `errno` of the failure; nothing if the work succeeds.
std::optional<int> errorOf(const std::function<void()>& work) {
    try {
        work();
        return std::nullopt;
    } catch (const tavrin::PlatformError& error) {
        return error.code();
    }
}

UpdateProof proofOf(const test::UpdateSigner& signer, const std::string& text) {
    return {
        *updateSignatureFromBase64(signer.signature(text)),
        *updateHashFromHex(test::UpdateSigner::sha256(text))};
}

/// Runs with both kinds of naming.
class StagedUpdateTest : public testing::TestWithParam<StagedUpdate::Naming> {
protected:
    StagedUpdate staged(std::uint64_t length, Use use = Use::Program) {
        return {place_, length, use, GetParam()};
    }

    void install(const std::string& text, Use use) {
        StagedUpdate update = staged(text.size(), use);
        update.append(text);
        update.verify(key(), proof(text));
        update.putInPlace();
    }

    void write(const std::filesystem::path& file, const std::string& text) {
        std::ofstream(file, std::ios::binary) << text;
    }

    [[nodiscard]] std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
            names.push_back(entry.path().filename());
        }
        return names;
    }

    [[nodiscard]] UpdateKey key() const { return *UpdateKey::fromBase64(signer_.publicKey()); }
    [[nodiscard]] UpdateProof proof(const std::string& text) const {
        return proofOf(signer_, text);
    }

    /// The verification error; empty on success.
    std::string refusal(StagedUpdate& update, const UpdateProof& proof) {
        try {
            update.verify(key(), proof);
            return "";
        } catch (const UpdateError& error) {
            return error.what();
        }
    }

    test::TemporaryDirectory folder_;
    std::filesystem::path place_ = folder_ / "Agent.AppImage";
    test::UpdateSigner signer_;
};

class StagedUpdateAsRootTest : public StagedUpdateTest {
protected:
    void SetUp() override { test::skipUnlessRoot(); }
};

const auto bothWays =
    testing::Values(StagedUpdate::Naming::WithoutName, StagedUpdate::Naming::Named);

INSTANTIATE_TEST_SUITE_P(BothWays, StagedUpdateTest, bothWays);
INSTANTIATE_TEST_SUITE_P(BothWays, StagedUpdateAsRootTest, bothWays);

} // namespace

TEST_P(StagedUpdateTest, ReplacesAFile) {
    write(place_, "old");
    StagedUpdate update = staged(3);
    update.append("n");
    update.append("ew");
    EXPECT_EQ(content(place_), "old");
    update.verify(key(), proof("new"));
    update.putInPlace();
    EXPECT_EQ(content(place_), "new");
    EXPECT_THAT(files(), ElementsAre("Agent.AppImage"));
}

TEST_P(StagedUpdateTest, KeepsOnlyTheModeOfTheUsersProgramWithoutWriteAccessForOthers) {
    const auto file = [this](mode_t mode) {
        return [this, mode] {
            write(place_, "old");
            chmod(place_.c_str(), mode);
        };
    };
    const auto link = [this] {
        write(folder_ / "target", "target");
        chmod((folder_ / "target").c_str(), 0600);
        std::filesystem::create_symlink("target", place_);
    };
    struct Case {
        const char* name;
        std::function<void()> prepare;
        Use use;
        unsigned mode;
    };
    const std::vector<Case> cases = {
        {"usual", file(0755), Use::Program, 0755},
        {"for the owner", file(0700), Use::Program, 0700},
        {"for some", file(0751), Use::Program, 0751},
        {"writable for the world", file(0777), Use::Program, 0755},
        {"with the owner's rights", file(04755), Use::Program, 0755},
        {"missing", [] {}, Use::Program, 0755},
        {"link", link, Use::Program, 0755},
        {"new package", [] {}, Use::Document, 0644},
        {"package writable for the world", file(0666), Use::Document, 0644},
        {"link in a package's place", link, Use::Document, 0644}};
    for (const Case& each : cases) {
        std::filesystem::remove(place_);
        each.prepare();
        install("new", each.use);
        struct stat status {};
        ASSERT_EQ(lstat(place_.c_str(), &status), 0) << each.name;
        EXPECT_TRUE(S_ISREG(status.st_mode)) << each.name;
        EXPECT_EQ(status.st_uid, geteuid()) << each.name;
        EXPECT_EQ(status.st_mode & 07777U, each.mode) << each.name;
    }
    EXPECT_EQ(content(folder_ / "target"), "target");
}

TEST_P(StagedUpdateAsRootTest, DoesNotKeepTheModeOfAnotherUsersProgram) {
    write(place_, "old");
    chmod(place_.c_str(), 0666);
    ASSERT_EQ(chown(place_.c_str(), 65534, gid_t(-1)), 0);
    install("new", Use::Program);
    struct stat status {};
    ASSERT_EQ(stat(place_.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, geteuid());
    EXPECT_EQ(status.st_mode & 07777U, 0755U);
}

TEST_P(StagedUpdateTest, ARunningProgramKeepsItsContent) {
    write(place_, "old");
    std::ifstream running(place_);
    StagedUpdate update = staged(3);
    update.append("new");
    update.verify(key(), proof("new"));
    update.putInPlace();
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(running), {}), "old");
}

TEST_P(StagedUpdateTest, OnlyTheOwnerCanReadItDuringTheDownload) {
    const StagedUpdate update = staged(3);
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
        EXPECT_EQ(entry.status().permissions(), std::filesystem::perms(0600));
    }
}

TEST_P(StagedUpdateTest, RemovesAFileThatWasNotPutInPlace) {
    {
        StagedUpdate update = staged(3);
        update.append("new");
        update.verify(key(), proof("new"));
    }
    EXPECT_THAT(files(), IsEmpty());
}

TEST_P(StagedUpdateTest, VerifiesOnlyTheCompleteSignedContent) {
    {
        StagedUpdate update = staged(4);
        update.append("new");
        EXPECT_EQ(
            refusal(update, proof("new")),
            "The update is shorter than announced: 3 bytes instead of 4.");
    }
    {
        StagedUpdate update = staged(3);
        update.append("neu");
        EXPECT_EQ(
            refusal(update, proof("new")),
            "The signature of the update is not valid. It was not installed.");
    }
    {
        StagedUpdate update = staged(3);
        update.append("old");
        EXPECT_EQ(
            refusal(update, {proof("old").signature, proof("new").hash}),
            "The update is not the file that the feed announces. It was not installed.");
    }
    {
        StagedUpdate update = staged(3);
        update.append("new");
        EXPECT_EQ(refusal(update, proof("new")), "");
    }
    EXPECT_THAT(files(), IsEmpty());
}

TEST_P(StagedUpdateTest, ReportsABrokenDisk) {
    StagedUpdate update = staged(3);
    update.append("new");
    test::withFailingCall(SYS_pread64, EIO, [&] {
        try {
            update.verify(key(), proof("new"));
            ADD_FAILURE() << "Verified.";
        } catch (const tavrin::PlatformError& error) {
            EXPECT_EQ(error.code(), EIO);
            EXPECT_THAT(error.what(), HasSubstr("Could not read the update"));
        }
    });
}

TEST_P(StagedUpdateTest, ReportsADiskThatCannotBeFlushed) {
    StagedUpdate update = staged(3);
    update.append("new");
    test::withFailingCall(SYS_fsync, EIO, [&] {
        EXPECT_EQ(errorOf([&] { update.verify(key(), proof("new")); }), EIO);
    });
}

TEST_P(StagedUpdateTest, FlushesTheFileBeforeAndTheFolderAfterItIsPutInPlace) {
    const test::FlushCounter flushes;
    StagedUpdate update = staged(3);
    update.append("new");
    update.verify(key(), proof("new"));
    const std::filesystem::path hidden = folder_ / ".Agent.AppImage.update";
    bool isRenamed = false;
    const test::BeforeRenaming renaming([&] {
        isRenamed = true;
        EXPECT_GE(flushes.count(hidden), 1U);
        EXPECT_EQ(flushes.count(folder_.path()), 0U);
    });
    update.putInPlace();
    EXPECT_TRUE(isRenamed);
    EXPECT_EQ(flushes.count(folder_.path()), 1U);
}

TEST_P(StagedUpdateTest, TheModeIsOnTheDiskBeforeTheName) {
    for (const Use use : {Use::Program, Use::Document}) {
        const test::FlushCounter flushes;
        StagedUpdate update = staged(3, use);
        update.append("new");
        update.verify(key(), proof("new"));
        std::optional<unsigned> flushedMode;
        const test::BeforeRenaming renaming(
            [&] { flushedMode = flushes.lastMode(folder_ / ".Agent.AppImage.update"); });
        update.putInPlace();
        EXPECT_EQ(flushedMode, use == Use::Program ? 0755U : 0644U);
    }
}

TEST_P(StagedUpdateTest, AModeThatCannotBeFlushedLeavesTheOldFile) {
    write(place_, "old");
    StagedUpdate update = staged(3);
    update.append("new");
    update.verify(key(), proof("new"));
    test::withFailingCall(
        SYS_fsync, EIO, [&] { EXPECT_EQ(errorOf([&] { update.putInPlace(); }), EIO); });
    EXPECT_EQ(content(place_), "old");
}

TEST_P(StagedUpdateTest, APackageIsNotStoredWhereOthersCanReplaceIt) {
    const auto refusal = [this](Use use) -> std::string {
        try {
            const StagedUpdate update = staged(3, use);
            return "";
        } catch (const UpdateError& error) {
            return error.what();
        }
    };
    struct Case {
        mode_t mode;
        gid_t group;
        bool isShared;
    };
    const gid_t own = getegid();
    std::vector<Case> cases = {
        {0700, own, false},
        {0755, own, false},
        {0775, own, false},
        {01777, own, false},
        {0777, own, true},
        {0757, own, true}};
    if (geteuid() == 0) {
        constexpr gid_t others = 65534;
        cases.insert(
            cases.end(), {{0755, others, false}, {0775, others, true}, {01775, others, false}});
    }
    for (const Case& each : cases) {
        ASSERT_EQ(chown(folder_.path().c_str(), uid_t(-1), each.group), 0);
        ASSERT_EQ(chmod(folder_.path().c_str(), each.mode), 0);
        const std::string sentence = "Other users can replace files in " + folder_.path().string() +
                                     ", so the update is not stored there.";
        EXPECT_EQ(refusal(Use::Document), each.isShared ? sentence : "") << std::oct << each.mode;
        EXPECT_EQ(refusal(Use::Program), "") << std::oct << each.mode;
        EXPECT_THAT(files(), IsEmpty());
    }
}

TEST_P(StagedUpdateAsRootTest, APackageIsNotStoredInAnotherUsersFolder) {
    ASSERT_EQ(chown(folder_.path().c_str(), 65534, gid_t(-1)), 0);
    EXPECT_THROW(staged(3, Use::Document), UpdateError);
    EXPECT_NO_THROW(staged(3, Use::Program));
}

TEST_P(StagedUpdateTest, TakesNoMoreThanAnnounced) {
    StagedUpdate update = staged(3);
    update.append("ne");
    try {
        update.append("wer");
        ADD_FAILURE() << "Accepted.";
    } catch (const UpdateError& error) {
        EXPECT_STREQ(error.what(), "The update is longer than the announced 3 bytes.");
    }
    EXPECT_EQ(update.received(), 2U);
}

TEST_P(StagedUpdateTest, ReplacesAFileLeftByACrash) {
    write(folder_ / ".Agent.AppImage.update", "left");
    StagedUpdate update = staged(3);
    update.append("new");
    update.verify(key(), proof("new"));
    update.putInPlace();
    EXPECT_THAT(files(), ElementsAre("Agent.AppImage"));
    EXPECT_EQ(content(place_), "new");
}

TEST_P(StagedUpdateTest, DetectsAFullDiskBeforeWriting) {
    const test::SmallDisk disk(folder_.path(), 64 * 1024);
    write(place_, "old");
    try {
        const StagedUpdate update = staged(1024 * 1024);
        ADD_FAILURE() << "There was room.";
    } catch (const tavrin::PlatformError& error) {
        EXPECT_EQ(error.code(), disk.errorWhenFull());
        EXPECT_THAT(
            error.what(), HasSubstr("Could not store the update beside " + place_.string()));
    }
    EXPECT_THAT(files(), ElementsAre("Agent.AppImage"));
    EXPECT_EQ(content(place_), "old");
}

TEST_P(StagedUpdateTest, ALimitOnRoomIsDetectedBeforeWriting) {
    for (const int limit : {EFBIG, EDQUOT}) {
        test::withFailingCall(SYS_fallocate, limit, [&] {
            EXPECT_EQ(errorOf([&] { const StagedUpdate update = staged(3); }), limit);
        });
    }
    EXPECT_THAT(files(), IsEmpty());
}

TEST_P(StagedUpdateTest, AFileSystemThatCannotReserveRoomIsUsed) {
    test::withFailingCall(SYS_fallocate, EOPNOTSUPP, [&] {
        EXPECT_EQ(errorOf([&] { install("new", Use::Program); }), std::nullopt);
    });
    EXPECT_EQ(content(place_), "new");
}

TEST_P(StagedUpdateTest, AProgramCanBeStartedOnceItIsInPlace) {
    const std::string script = "#!/bin/sh\nexit 42\n";
    StagedUpdate update = staged(script.size());
    update.append(script);
    update.verify(key(), proof(script));
    update.putInPlace();
    EXPECT_EQ(WEXITSTATUS(std::system(place_.c_str())), 42);
}

TEST_P(StagedUpdateTest, AFileThatIsReplacedDuringTheRenamingIsReported) {
    StagedUpdate update = staged(3);
    update.append("new");
    update.verify(key(), proof("new"));
    const test::BeforeRenaming renaming([this] {
        std::filesystem::remove(folder_ / ".Agent.AppImage.update");
        write(folder_ / ".Agent.AppImage.update", "evil");
    });
    try {
        update.putInPlace();
        ADD_FAILURE() << "Accepted.";
    } catch (const UpdateError& error) {
        EXPECT_THAT(error.what(), HasSubstr("is not the one that was verified"));
    }
}

TEST_P(StagedUpdateTest, ReportsAFolderThatCannotBeWritten) {
    ASSERT_EQ(chmod(folder_.path().c_str(), 0555), 0);
    const test::UnprivilegedUser user;
    EXPECT_THROW(staged(3), tavrin::PlatformError);
}

TEST_P(StagedUpdateTest, ReportsAMissingFolder) {
    EXPECT_THROW(
        StagedUpdate(folder_ / "missing" / "file", 3, Use::Program, GetParam()),
        tavrin::PlatformError);
}

TEST(StagedUpdateNameTest, AReplacedFileIsNotInstalled) {
    const test::TemporaryDirectory folder;
    const test::UpdateSigner signer;
    const std::filesystem::path place = folder / "Agent.AppImage";
    std::ofstream(place) << "old";
    StagedUpdate update(place, 3, Use::Program, StagedUpdate::Naming::Named);
    update.append("new");
    update.verify(*UpdateKey::fromBase64(signer.publicKey()), proofOf(signer, "new"));
    const std::filesystem::path hidden = folder / ".Agent.AppImage.update";
    std::filesystem::remove(hidden);
    std::ofstream(hidden) << "evil";
    EXPECT_THROW(update.putInPlace(), UpdateError);
    EXPECT_EQ(content(place), "old");
}

} // namespace orvel
