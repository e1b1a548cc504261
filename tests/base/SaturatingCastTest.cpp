// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>

#include "base/SaturatingCast.h"

namespace android {
namespace {

TEST(SaturatingCastTest, ConvertsWhatFitsAndStopsAtTheLimits) {
    EXPECT_EQ(saturatingCast<int32_t>(1.9f), 1);
    EXPECT_EQ(saturatingCast<int32_t>(-1.9), -1);
    EXPECT_EQ(saturatingCast<int32_t>(2147483520.0f), 2147483520);  // the largest float below 2^31
    EXPECT_EQ(saturatingCast<int32_t>(2147483648.0f), INT32_MAX);
    EXPECT_EQ(saturatingCast<int32_t>(-2147483648.0f), INT32_MIN);
    EXPECT_EQ(saturatingCast<int64_t>(9223372036854774784.0), 9223372036854774784);
    EXPECT_EQ(saturatingCast<int64_t>(9223372036854775808.0), INT64_MAX);
    EXPECT_EQ(saturatingCast<int64_t>(INFINITY), INT64_MAX);
    EXPECT_EQ(saturatingCast<int64_t>(NAN), 0);
}

TEST(SaturatingCastTest, ArithmeticStopsAtTheLimits) {
    EXPECT_EQ(saturatingAdd<int64_t>(2, -5), -3);
    EXPECT_EQ(saturatingAdd<int64_t>(INT64_MAX, 1), INT64_MAX);
    EXPECT_EQ(saturatingAdd<int64_t>(INT64_MIN, -1), INT64_MIN);
    EXPECT_EQ(saturatingSub<int64_t>(-2, INT64_MAX), INT64_MIN);
    EXPECT_EQ(saturatingSub<int64_t>(1, INT64_MIN), INT64_MAX);
    EXPECT_EQ(saturatingMul<int64_t>(INT64_MAX, -2), INT64_MIN);
    EXPECT_EQ(saturatingMul<int64_t>(INT64_MIN, -1), INT64_MAX);
    EXPECT_EQ(saturatingMul<int64_t>(-3, 4), -12);
}

}  // namespace
}  // namespace android
