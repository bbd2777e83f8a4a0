// SPDX-License-Identifier: Apache-2.0
#include "core/RegularFile.h"

#include "core/Errors.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

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

} // namespace
} // namespace tavrin
