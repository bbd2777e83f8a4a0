// SPDX-License-Identifier: Apache-2.0
#include "core/RegularFile.h"

#include "core/Errors.h"
#include "tests/support/NeedsRoot.h"
#include "tests/support/TemporaryDirectory.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>

namespace tavrin {
namespace {

class RegularFileTest : public testing::Test {
protected:
    /// The code of the error when opening fails, or 0.
    static int failure(const std::filesystem::path& path) {
        try {
            static_cast<void>(openRegularFile(path));
        } catch (const PlatformError& error) {
            EXPECT_TRUE(std::string(error.what()).starts_with("Could not read " + path.string()));
            return error.code();
        }
        return 0;
    }

    orvel::test::TemporaryDirectory folder_;
};

TEST_F(RegularFileTest, HasADescriptorAndASize) {
    std::ofstream(folder_ / "file") << "text";
    const RegularFile file = openRegularFile(folder_ / "file");
    EXPECT_TRUE(file.descriptor.isOpen());
    EXPECT_EQ(file.size, 4);
}

TEST_F(RegularFileTest, ClosesItsDescriptor) {
    std::ofstream(folder_ / "file") << "text";
    int descriptor = -1;
    {
        const RegularFile file = openRegularFile(folder_ / "file");
        descriptor = file.descriptor.get();
    }
    struct stat status {};
    EXPECT_EQ(fstat(descriptor, &status), -1);
}

TEST_F(RegularFileTest, OtherPathsAreErrors) {
    EXPECT_EQ(failure(folder_ / "missing"), ENOENT);
    EXPECT_EQ(failure(folder_.path()), EISDIR);
}

TEST_F(RegularFileTest, APipeIsAnErrorAtOnce) {
    mkfifo((folder_ / "pipe").c_str(), 0600);
    EXPECT_EQ(failure(folder_ / "pipe"), EINVAL);
}

class OwnFileTest : public RegularFileTest {
protected:
    /// The sentence of the refusal, or empty.
    [[nodiscard]] std::string refusal() const {
        try {
            static_cast<void>(openOwnFile(path_, O_WRONLY, "Could not write"));
        } catch (const PlatformError& error) {
            const std::string text = error.what();
            const std::string start = "Could not write " + path_.string() + ": ";
            EXPECT_TRUE(text.starts_with(start)) << text;
            return text.substr(start.size());
        }
        return {};
    }

    const std::filesystem::path path_ = folder_ / "own";
};

class OwnFileAsRootTest : public OwnFileTest {
protected:
    void SetUp() override { orvel::test::skipUnlessRoot(); }
};

TEST_F(OwnFileTest, IsForThisUserOnly) {
    const auto privateFile =
        std::filesystem::perms::owner_read | std::filesystem::perms::owner_write;
    const mode_t former = umask(0);
    EXPECT_EQ(refusal(), "");
    umask(former);
    EXPECT_EQ(std::filesystem::status(path_).permissions(), privateFile);
    std::ofstream(path_) << "text";
    chmod(path_.c_str(), 0666);
    EXPECT_EQ(refusal(), "");
    EXPECT_EQ(std::filesystem::status(path_).permissions(), privateFile);
    EXPECT_EQ(std::filesystem::file_size(path_), 4U);
}

TEST_F(OwnFileTest, LinksAndPipesAreRefused) {
    std::ofstream(folder_ / "other") << "text";
    std::filesystem::create_symlink("other", path_);
    EXPECT_NE(refusal(), "");
    std::filesystem::remove(path_);
    std::filesystem::create_hard_link(folder_ / "other", path_);
    EXPECT_EQ(
        refusal(), "the file has a second name, under which another user may have put it here.");
    std::filesystem::remove(path_);
    mkfifo(path_.c_str(), 0600);
    EXPECT_NE(refusal(), "");
    const FileDescriptor reader(open(path_.c_str(), O_RDONLY | O_NONBLOCK));
    EXPECT_EQ(refusal(), "it is not a regular file.");
}

TEST_F(OwnFileAsRootTest, AFileOfAnotherUserIsRefused) {
    std::ofstream(path_) << "text";
    ASSERT_EQ(chown(path_.c_str(), 65534, 65534), 0);
    EXPECT_EQ(refusal(), "the file belongs to another user.");
}

} // namespace
} // namespace tavrin
