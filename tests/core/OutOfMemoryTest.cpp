// SPDX-License-Identifier: Apache-2.0
#include "core/OutOfMemory.h"

#include "core/Errors.h"

#include <gtest/gtest.h>

#include <exception>
#include <new>
#include <string>

namespace tavrin::test {

namespace {

constexpr const char* sentence =
    "There is not enough memory. Close other programs, then try again.";

class OutOfMemoryTest : public testing::Test {
protected:
    ~OutOfMemoryTest() override { std::set_new_handler(before_); }

private:
    std::new_handler before_ = std::get_new_handler();
};

} // namespace

TEST_F(OutOfMemoryTest, NewThrowsASentence) {
    OutOfMemory::throwFromNew();
    std::string text;
    try {
        // What `new` does if it fails.
        std::get_new_handler()();
    } catch (const std::bad_alloc& error) {
        text = error.what();
    }
    EXPECT_EQ(text, sentence);
}

TEST_F(OutOfMemoryTest, AnErrorOfALibraryIsDescribedLikewise) {
    EXPECT_EQ(description(std::make_exception_ptr(std::bad_alloc())), sentence);
}

TEST_F(OutOfMemoryTest, WorkIsRepeatedUntilThereIsMemory) {
    int attempts = 0;
    repeatUntilThereIsMemory([&attempts] {
        if (++attempts < 3) {
            throw std::bad_alloc();
        }
    });
    EXPECT_EQ(attempts, 3);
}

} // namespace tavrin::test
