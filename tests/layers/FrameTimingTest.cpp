// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Periods and depths are what the compositor says: any value. The registry's model has the rest.

#include <gtest/gtest.h>

#include <limits>

#include "layers/FrameTiming.h"

namespace android {
namespace {

constexpr nsecs_t kMax = std::numeric_limits<nsecs_t>::max();
constexpr nsecs_t kMin = std::numeric_limits<nsecs_t>::min();
constexpr int32_t kIntMax = std::numeric_limits<int32_t>::max();
constexpr int32_t kIntMin = std::numeric_limits<int32_t>::min();

TEST(FrameTimingTest, SaturatesAtTheEndsOfItsRanges) {
    EXPECT_EQ(predictTimeToPresent(970, 100, 1'000, 0), 130) << "queued before its latch was seen";
    EXPECT_EQ(predictTimeToPresent(1'000, kMax, 900, kIntMax), kMax);
    EXPECT_EQ(predictTimeToPresent(970, kMax, 1'000, 0), kMax);
    EXPECT_EQ(predictTimeToPresent(1'000, kMax, 0, kIntMin), kMin + kMax);
    EXPECT_EQ(predictTimeToPresent(1'000, kMin, 900, kIntMax), kMin);
    EXPECT_EQ(predictTimeToPresent(1'031, 100, 1, 0), 70) << "the first anchor there is";
    EXPECT_EQ(countDroppedFrames(kMax, 1, 1'000), kIntMax);
    EXPECT_EQ(countDroppedFrames(1'100, kMax, 1'000), 0);
    EXPECT_EQ(countDroppedFrames(500, 100, 1'000), 0) << "latches out of order";
    EXPECT_EQ(countDroppedFrames(10, 1, 1), 8);
    EXPECT_EQ(countDroppedFrames(1'255, 100, 1'000), 2) << "nearer to three periods than to two";
    EXPECT_EQ(queueDepthAfterLatch(kIntMin, kIntMin, kMax), kIntMin);
    EXPECT_TRUE(isYoungerThan(1'149, 1'000, 1.5f, 100));
    EXPECT_TRUE(isYoungerThan(1'000'000, 1'000, 1e38f, 1'000'000'000));
    EXPECT_TRUE(isYoungerThan(1'000'000, 1'000, std::numeric_limits<float>::infinity(), 1));
}

}  // namespace
}  // namespace android
