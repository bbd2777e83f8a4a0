// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/update/UpdateInstallation.h"

#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace orvel {

namespace {

class UpdateInstallationTest : public testing::Test {
protected:
    UpdateInstallationTest() {
        std::ofstream(appImage_) << "image";
        std::filesystem::create_directories(mounted_ / "usr" / "bin");
    }

    [[nodiscard]] ProgramTraces traces() const {
        return {mounted_ / "usr" / "bin" / "orvel-agent", appImage_, mounted_};
    }
    [[nodiscard]] static UpdateInstallation of(const ProgramTraces& traces) {
        return UpdateInstallation(traces, "/packages");
    }

    test::TemporaryDirectory folder_;
    std::filesystem::path appImage_ = folder_ / "Agent.AppImage";
    std::filesystem::path mounted_ = folder_ / "mounted";
};

} // namespace

TEST_F(UpdateInstallationTest, AnAppImageIsReplaced) {
    const UpdateInstallation installation = of(traces());
    EXPECT_EQ(installation.kind(), UpdateInstallation::Kind::AppImage);
    EXPECT_EQ(installation.type(), "application/vnd.appimage");
    EXPECT_EQ(installation.place("2.0"), appImage_);
}

TEST_F(UpdateInstallationTest, ALinkToAnAppImageStaysALink) {
    const auto link = folder_ / "link";
    std::filesystem::create_symlink(appImage_, link);
    auto linked = traces();
    linked.appImage = link;
    EXPECT_EQ(of(linked).place("2.0"), appImage_);
}

TEST_F(UpdateInstallationTest, AnythingElseIsAPackage) {
    const UpdateInstallation installation = of({"/usr/bin/orvel-agent", "", ""});
    EXPECT_EQ(installation.kind(), UpdateInstallation::Kind::Package);
    EXPECT_EQ(installation.type(), "application/vnd.debian.binary-package");
    EXPECT_EQ(installation.place("2.0"), "/packages/orvel-agent-2.0.deb");
}

TEST_F(UpdateInstallationTest, IgnoresAnotherProgramsAppImage) {
    auto started = traces();
    started.executable = "/usr/bin/orvel-agent";
    EXPECT_EQ(of(started).kind(), UpdateInstallation::Kind::Package);
    started.executable = mounted_.string() + "-other/orvel-agent";
    EXPECT_EQ(of(started).kind(), UpdateInstallation::Kind::Package);
}

TEST_F(UpdateInstallationTest, IgnoresAnAppImageThatIsNotAFile) {
    for (const std::filesystem::path& path :
         {std::filesystem::path(),
          folder_ / "missing",
          mounted_,
          std::filesystem::path("/dev/null")}) {
        auto changed = traces();
        changed.appImage = path;
        EXPECT_EQ(of(changed).kind(), UpdateInstallation::Kind::Package) << path;
    }
    auto unmounted = traces();
    unmounted.appDir = folder_ / "missing";
    EXPECT_EQ(of(unmounted).kind(), UpdateInstallation::Kind::Package);
}

TEST_F(UpdateInstallationTest, ThisTestIsNotAnAppImage) {
    const ProgramTraces own = ProgramTraces::ofThisProcess();
    EXPECT_EQ(own.executable.filename(), "platform_tests");
    EXPECT_EQ(of(own).kind(), UpdateInstallation::Kind::Package);
}

} // namespace orvel
