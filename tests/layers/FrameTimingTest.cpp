// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <limits>

#include "layers/FrameTiming.h"

namespace android {
namespace {

constexpr nsecs_t kMax = std::numeric_limits<nsecs_t>::max();
constexpr nsecs_t kMin = std::numeric_limits<nsecs_t>::min();
constexpr int32_t kIntMax = std::numeric_limits<int32_t>::max();
constexpr int32_t kIntMin = std::numeric_limits<int32_t>::min();

TEST(FrameTimingTest, PredictsTheTimeToPresent) {
    struct {
        nsecs_t now, period, anchor;
        int32_t queued;
        nsecs_t expected;
    } const cases[] = {
            {1'000, 0, 0, 0, 0},          // nothing known
            {1'000, 100, 0, 0, 100},      // no latch yet: a whole period
            {1'030, 100, 1'000, 0, 70},   // 30 into the period
            {1'230, 100, 1'000, 0, 70},   // whole periods do not count
            {1'000, 100, 1'000, 0, 100},  // on the vsync itself
            {1'030, 100, 1'000, 2, 270},  // behind two buffers
            {970, 100, 1'000, 0, 130},    // queued before the latch that was recorded first
            {1'000, kMax, 900, kIntMax, kMax},
            {970, kMax, 1'000, 0, kMax},
            {1'000, kMax, 0, kIntMin, kMin + kMax},
            {1'000, kMin, 900, kIntMax, kMin},
            {1'000, kMin, 900, kIntMin, -1},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(predictTimeToPresent(c.now, c.period, c.anchor, c.queued), c.expected)
                << c.now << ' ' << c.period << ' ' << c.anchor << ' ' << c.queued;
    }
}

TEST(FrameTimingTest, CountsDroppedFrames) {
    struct {
        nsecs_t elapsed, period;
        int32_t expected;
    } const cases[] = {
            {0, 100, 0},
            {149, 100, 0},  // the frame that was due
            {150, 100, 1},
            {250, 100, 2},   // rounded to whole periods
            {-500, 100, 0},  // latches out of order
            {100, 0, 0},
            {100, -5, 0},
            {100, kMin, 0},
            {100, kMax, 0},
            {kMax - 1'000, 1, kIntMax},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(countDroppedFrames(1'000 + c.elapsed, c.period, 1'000), c.expected)
                << c.elapsed << " of " << c.period;
    }
    EXPECT_EQ(countDroppedFrames(1'000, 10, 0), 0) << "no latch to count from";
}

TEST(FrameTimingTest, SettlesTheQueueDepth) {
    constexpr nsecs_t kRecent = 2'000'000;
    constexpr nsecs_t kLongAgo = 2'000'001;
    struct {
        int32_t depth, pending;
        nsecs_t sinceQueue;
        int32_t expected;
    } const cases[] = {
            {3, 2, kLongAgo, 2},  // both agree
            {3, 0, kRecent, 2},   // a queued buffer that the compositor did not see yet
            {3, 0, kLongAgo, 0},  // we missed latches
            {0, 2, kRecent, 2},   // we missed queued buffers
            {kIntMin, kIntMin, kLongAgo, kIntMin},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(queueDepthAfterLatch(c.depth, c.pending, c.sinceQueue), c.expected)
                << c.depth << ' ' << c.pending << ' ' << c.sinceQueue;
    }
}

TEST(FrameTimingTest, JudgesAFramesAge) {
    EXPECT_TRUE(isYoungerThan(1'099, 1'000, 1.0f, 100));
    EXPECT_FALSE(isYoungerThan(1'100, 1'000, 1.0f, 100));
    EXPECT_TRUE(isYoungerThan(1'149, 1'000, 1.5f, 100));
    EXPECT_TRUE(isYoungerThan(1'000'000, 1'000, 1e38f, 1'000'000'000)) << "saturates";
    EXPECT_TRUE(isYoungerThan(1'000'000, 1'000, std::numeric_limits<float>::infinity(), 1));
}

}  // namespace
}  // namespace android
