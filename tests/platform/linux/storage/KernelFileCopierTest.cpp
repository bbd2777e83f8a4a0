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
