// Results for GoogleTest.
#pragma once

#include "testing/Main.h"
#include "testing/Result.h"

#include <gtest/gtest.h>

namespace vel::testing {

inline ::testing::AssertionResult asAssertion(const Result& result) {
    return result ? ::testing::AssertionSuccess() : ::testing::AssertionFailure() << '\n' << result.text().constData();
}

} // namespace vel::testing

/// Fails the test when the Result is a failure, and shows its message. VEL_ASSERT leaves the function then.
#define VEL_EXPECT(result) EXPECT_TRUE(::vel::testing::asAssertion(result))
#define VEL_ASSERT(result) ASSERT_TRUE(::vel::testing::asAssertion(result))
