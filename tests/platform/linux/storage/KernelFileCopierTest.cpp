// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/storage/KernelFileCopier.h"

#include "core/CancellationToken.h"
#include "core/Errors.h"
#include "core/FileDescriptor.h"
#include "tests/platform/CopyFailure.h"
#include "tests/support/FileContent.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/linux/SystemCalls.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <future>
#include <optional>
#include <string>

namespace orvel {
namespace {

namespace fs = std::filesystem;
using tavrin::CancellationSource;
using tavrin::CancellationToken;
using tavrin::FileDescriptor;
using tavrin::TaskCancelled;
using test::contentOf;
using test::copyFailure;
using test::TemporaryDirectory;
using test::writeFile;
using Method = KernelFileCopier::Method;

/// Longer than one chunk of each method, not a multiple of a chunk, and without repetition.
std::string longContent() {
    std::string content(17'000'001, '.');
    for (std::size_t offset = 0; offset + 8 < content.size(); offset += 4093) {
        const std::string mark = std::to_string(offset);
        content.replace(offset, mark.size(), mark);
    }
    return content;
}

class KernelFileCopierTest : public testing::Test {
protected:
    TemporaryDirectory directory_;
    fs::path source_ = directory_ / "source";
    fs::path destination_ = directory_ / "destination";
    KernelFileCopier copier_;
};

/// Copies a file that is too large to finish on another thread, and reports when the first bytes
/// have arrived.
class EndlessCopy final {
public:
    static constexpr off_t size = off_t{1} << 40;

    EndlessCopy(Method method, const fs::path& source, const fs::path& destination)
        : events_(inotify_init1(IN_CLOEXEC)) {
        writeFile(source, "");
        fs::resize_file(source, static_cast<std::uintmax_t>(size));
        inotify_add_watch(events_.get(), source.parent_path().c_str(), IN_MODIFY);
        result_ = std::async(std::launch::async, [=, token = cancellation_.token()] {
            KernelFileCopier({method}).copy(source, destination, token);
        });
    }

    void awaitFirstBytes() {
        std::array<char, 4096> event{};
        ASSERT_GT(read(events_.get(), event.data(), event.size()), 0);
    }

    void cancel() { cancellation_.cancel(); }

    void finish() { result_.get(); }

private:
    FileDescriptor events_;
    CancellationSource cancellation_;
    std::future<void> result_;
};

class KernelFileCopierMethodTest : public KernelFileCopierTest,
                                   public testing::WithParamInterface<Method> {
protected:
    KernelFileCopier copierOfThisWay_ = KernelFileCopier({GetParam()});
};

INSTANTIATE_TEST_SUITE_P(
    ,
    KernelFileCopierMethodTest,
    testing::Values(Method::CopyInKernel, Method::ReadAndWrite),
    [](const auto& method) {
        return method.param == Method::CopyInKernel ? "CopyInKernel" : "ReadAndWrite";
    });

TEST_P(KernelFileCopierMethodTest, CopiesEveryByte) {
    const std::string content = longContent();
    writeFile(source_, content);

    copierOfThisWay_.copy(source_, destination_, CancellationToken());

    EXPECT_TRUE(contentOf(destination_) == content);
}

TEST_P(KernelFileCopierMethodTest, CopiesAnEmptyFile) {
    writeFile(source_, "");

    copierOfThisWay_.copy(source_, destination_, CancellationToken());

    EXPECT_EQ(fs::file_size(destination_), 0U);
}

TEST_P(KernelFileCopierMethodTest, StopsAndRemovesTheCopyWhenCancelledInTheMiddle) {
    EndlessCopy copy(GetParam(), source_, destination_);
    copy.awaitFirstBytes();

    copy.cancel();

    EXPECT_THROW(copy.finish(), TaskCancelled);
    EXPECT_FALSE(fs::exists(destination_));
}

TEST_F(KernelFileCopierTest, ClonesOrReportsThatTheFileSystemCannot) {
    writeFile(source_, "content");
    KernelFileCopier copier({Method::Clone});

    const std::optional<int> failure = copyFailure(copier, source_, destination_);

    if (failure) {
        EXPECT_EQ(failure, EOPNOTSUPP);
        EXPECT_FALSE(fs::exists(destination_));
    } else {
        EXPECT_EQ(contentOf(destination_), "content");
    }
}

/// Most of it is holes.
constexpr off_t sparseSize = off_t{1} << 28;

/// Data at the start, in the middle and, if asked for, at the end of much larger holes.
void writeSparse(const fs::path& path, bool endsWithData) {
    const FileDescriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(pwrite(file.get(), "start", 5, 0), 5);
    ASSERT_EQ(pwrite(file.get(), "middle", 6, sparseSize / 2), 6);
    if (endsWithData) {
        ASSERT_EQ(pwrite(file.get(), "end", 3, sparseSize - 3), 3);
    }
    ASSERT_EQ(ftruncate(file.get(), sparseSize), 0);
}

std::string partOf(const fs::path& path, off_t offset, std::size_t size) {
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::string part(size, '?');
    part.resize(static_cast<std::size_t>(
        std::max<ssize_t>(pread(file.get(), part.data(), size, offset), 0)));
    return part;
}

void expectSparseCopy(const fs::path& destination, bool endsWithData) {
    struct stat status {};
    ASSERT_EQ(stat(destination.c_str(), &status), 0);
    EXPECT_EQ(status.st_size, sparseSize);
    EXPECT_LT(status.st_blocks * 512, 10'000'000);
    EXPECT_EQ(partOf(destination, 0, 6), std::string("start\0", 6));
    EXPECT_EQ(partOf(destination, sparseSize / 2 - 1, 8), std::string("\0middle\0", 8));
    EXPECT_EQ(
        partOf(destination, sparseSize - 4, 9),
        endsWithData ? std::string("\0end", 4) : std::string(4, '\0'));
}

TEST_F(KernelFileCopierTest, TheHolesOfAFileTakeNoSpaceInItsCopy) {
    for (const bool endsWithData : {true, false}) {
        fs::remove(source_);
        fs::remove(destination_);
        writeSparse(source_, endsWithData);

        copier_.copy(source_, destination_, CancellationToken());

        expectSparseCopy(destination_, endsWithData);
    }
}

TEST_F(KernelFileCopierTest, HolesTakeNoSpaceOnAnotherFileSystem) {
    const FileDescriptor memory(memfd_create("source", MFD_CLOEXEC));
    const fs::path source = "/proc/self/fd/" + std::to_string(memory.get());
    writeSparse(source, true);

    copier_.copy(source, destination_, CancellationToken());

    expectSparseCopy(destination_, true);
}

TEST_F(KernelFileCopierTest, AFileThatIsOneHoleIsCopied) {
    writeFile(source_, "");
    fs::resize_file(source_, static_cast<std::uintmax_t>(sparseSize));

    copier_.copy(source_, destination_, CancellationToken());

    EXPECT_EQ(fs::file_size(destination_), static_cast<std::uintmax_t>(sparseSize));
}

TEST_F(KernelFileCopierTest, CopiesBetweenFileSystems) {
    const std::string content = longContent();
    // A memory file is on another file system.
    const FileDescriptor memory(memfd_create("source", MFD_CLOEXEC));
    const fs::path source = "/proc/self/fd/" + std::to_string(memory.get());
    writeFile(source, content);
    KernelFileCopier inKernelOnly({Method::CopyInKernel});
    ASSERT_EQ(copyFailure(inKernelOnly, source, destination_), EOPNOTSUPP);

    copier_.copy(source, destination_, CancellationToken());

    EXPECT_TRUE(contentOf(destination_) == content);
}

TEST_F(KernelFileCopierTest, ACopyThatTheKernelEndsEarlyIsContinuedByHand) {
    writeFile(source_, "content");
    KernelFileCopier copier({Method::CopyInKernel, Method::ReadAndWrite});

    // Without an error number, the call returns 0.
    test::withFailingCall(SYS_copy_file_range, 0, [&] {
        EXPECT_EQ(copyFailure(copier, source_, destination_), std::nullopt);
    });

    EXPECT_EQ(contentOf(destination_), "content");
}

TEST_F(KernelFileCopierTest, ACopyThatCannotBeClosedFails) {
    writeFile(source_, "content");

    test::withFailingCall(
        SYS_close, EIO, [this] { EXPECT_EQ(copyFailure(copier_, source_, destination_), EIO); });

    EXPECT_FALSE(fs::exists(destination_));
}

TEST_F(KernelFileCopierTest, EndsWhenTheSourceShrinks) {
    EndlessCopy copy(Method::ReadAndWrite, source_, destination_);
    copy.awaitFirstBytes();

    fs::resize_file(source_, 1);

    EXPECT_NO_THROW(copy.finish());
    EXPECT_LT(fs::file_size(destination_), static_cast<std::uintmax_t>(EndlessCopy::size));
}

TEST_F(KernelFileCopierTest, IgnoresWhatIsAppendedToTheSource) {
    writeFile(source_, "");
    constexpr std::uintmax_t size = std::uintmax_t{64} << 20;
    fs::resize_file(source_, size);
    const FileDescriptor events(inotify_init1(IN_CLOEXEC));
    inotify_add_watch(events.get(), directory_.path().c_str(), IN_MODIFY);
    auto copy = std::async(std::launch::async, [this] {
        KernelFileCopier({Method::ReadAndWrite}).copy(source_, destination_, CancellationToken());
    });
    std::array<char, 4096> event{};
    ASSERT_GT(read(events.get(), event.data(), event.size()), 0);

    fs::resize_file(source_, static_cast<std::uintmax_t>(EndlessCopy::size));

    copy.get();
    EXPECT_EQ(fs::file_size(destination_), size);
}

} // namespace
} // namespace orvel
