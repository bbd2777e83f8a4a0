// SPDX-License-Identifier: Apache-2.0
#include "core/TransientFailure.h"

#include "core/CancellationToken.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

namespace tavrin {

namespace {

template <typename Error>
bool isTransient(Error error) {
    return TransientFailure::isTransient(std::make_exception_ptr(std::move(error)));
}

} // namespace

TEST(TransientFailureTest, TenURLLoadingCodesAreTransient) {
    const std::vector<int> codes = {
        -1005, -1001, -1009, -1004, -1003, -1006, -1200, -1020, -1018, -1019};
    ASSERT_EQ(TransientFailure::urlErrorCodes.size(), codes.size());
    for (std::size_t i = 0; i < codes.size(); ++i) {
        EXPECT_EQ(static_cast<int>(TransientFailure::urlErrorCodes[i]), codes[i]);
        EXPECT_TRUE(isTransient(URLError(static_cast<URLErrorCode>(codes[i]), "failed")));
    }
}

TEST(TransientFailureTest, OtherURLLoadingCodesAreNotTransient) {
    EXPECT_FALSE(isTransient(URLError(URLErrorCode::Cancelled, "cancelled")));
    EXPECT_FALSE(isTransient(URLError(URLErrorCode::ServerCertificateUntrusted, "untrusted")));
    EXPECT_FALSE(isTransient(URLError(URLErrorCode::BadURL, "bad")));
}

TEST(TransientFailureTest, TheCodeDecidesForPlatformErrorsOfTheURLLoadingDomain) {
    EXPECT_TRUE(isTransient(PlatformError("NSURLErrorDomain", -1001, "timed out")));
    EXPECT_FALSE(isTransient(PlatformError("NSURLErrorDomain", -999, "cancelled")));
    EXPECT_FALSE(isTransient(PlatformError("NSPOSIXErrorDomain", -1001, "no such thing")));
}

TEST(TransientFailureTest, CancellationAndUnknownErrorsAreNotTransient) {
    EXPECT_FALSE(isTransient(TaskCancelled()));
    EXPECT_FALSE(isTransient(std::runtime_error("something else")));
    EXPECT_FALSE(isTransient(42));
}

TEST(TransientFailureTest, TooManyRequestsAndServerErrorsAreTransientStatuses) {
    EXPECT_TRUE(TransientFailure::isTransient(429));
    EXPECT_TRUE(TransientFailure::isTransient(500));
    EXPECT_TRUE(TransientFailure::isTransient(599));
    EXPECT_FALSE(TransientFailure::isTransient(600));
    EXPECT_FALSE(TransientFailure::isTransient(499));
    EXPECT_FALSE(TransientFailure::isTransient(408));
    EXPECT_FALSE(TransientFailure::isTransient(428));
    EXPECT_FALSE(TransientFailure::isTransient(430));
    EXPECT_FALSE(TransientFailure::isTransient(200));
}

} // namespace tavrin
