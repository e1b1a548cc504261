// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <limits>

#include "gfr/FrameDeadlines.h"

namespace android {
namespace {

constexpr nsecs_t kMs = 1'000'000;
constexpr nsecs_t kPeriod = 10 * kMs;
constexpr float kVariation = 0.25f;
constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr nsecs_t kMaxNs = std::numeric_limits<nsecs_t>::max();
constexpr nsecs_t kMinNs = std::numeric_limits<nsecs_t>::min();

FrameDeadlines at(nsecs_t period, float fps = 0.0f, const GfrTunables& tunables = {}) {
    FrameDeadlines deadlines;
    deadlines.update(period, fps, tunables, kVariation, /*force=*/false);
    return deadlines;
}

TEST(FrameDeadlines, FollowThePeriodOfTheLayerOrTheDisplay) {
    FrameDeadlines d = at(kPeriod);
    EXPECT_EQ(2'500'000, d.resendThresholdNs);
    EXPECT_EQ((std::vector<nsecs_t>{13 * kMs, 16 * kMs, 19 * kMs}), d.jankDeadlinesNs);
    EXPECT_EQ(8 * kMs, d.minL0DelayNs);
    EXPECT_EQ(6 * kMs, d.goldenNs);

    EXPECT_EQ(25 * kMs, at(kPeriod, 40.0f).periodNs);
    EXPECT_EQ(16'666'667, at(kPeriod, 60.0f).periodNs);  // 1e9 / 60 in float, truncated
    for (float none : {0.01f, -40.0f, kNaN}) EXPECT_EQ(kPeriod, at(kPeriod, none).periodNs) << none;

    // Only a new, positive period updates, unless forced. At an infinite rate no period is left.
    GfrTunables changed;
    changed.golden = 1.0f;
    for (nsecs_t period : {kPeriod, nsecs_t{0}, kMinNs}) {
        d.update(period, 0.0f, changed, kVariation, /*force=*/false);
        d.update(kPeriod, kInfinity, changed, kVariation, /*force=*/false);
        EXPECT_EQ(kPeriod, d.periodNs);
        EXPECT_EQ(6 * kMs, d.goldenNs);
    }
    d.update(kPeriod, 0.0f, changed, kVariation, /*force=*/true);
    EXPECT_EQ(10 * kMs, d.goldenNs);
    d.update(-1, 0.0f, changed, kVariation, /*force=*/true);
    EXPECT_EQ(-1, d.periodNs);
}

TEST(FrameDeadlines, ChecksLeaveTheGoldenBudgetAndCountFromTheOneBefore) {
    const FrameDeadlines d = at(kPeriod);  // deadlines 13, 16, 19; golden 6; shortest delay 8 ms
    constexpr nsecs_t kEnd = 100 * kMs;
    EXPECT_EQ(0, d.adjustedL0DelayNs(kEnd + 19 * kMs, kEnd));  // exactly golden is left anyway
    EXPECT_EQ(13 * kMs - 1, d.adjustedL0DelayNs(kEnd + 19 * kMs - 1, kEnd));
    EXPECT_EQ(8 * kMs + 1, d.adjustedL0DelayNs(kEnd + 14 * kMs + 1, kEnd));
    EXPECT_EQ(8 * kMs, d.adjustedL0DelayNs(kEnd + 14 * kMs - 1, kEnd));

    EXPECT_EQ(11 * kMs, d.checkDelayNs(0, 2 * kMs, 0, 0));
    EXPECT_EQ(7 * kMs, d.checkDelayNs(0, 2 * kMs, 0, 9 * kMs));
    EXPECT_EQ(0, d.checkDelayNs(0, 13 * kMs + 1, 0, 0));
    EXPECT_EQ(3 * kMs, d.checkDelayNs(2, 500 * kMs, 0, 9 * kMs));
    GfrTunables outOfOrder;
    outOfOrder.jankThresholds = {1.6f, 1.3f};
    EXPECT_EQ(0, at(kPeriod, 0.0f, outOfOrder).checkDelayNs(1, 0, 0, 0));
}

TEST(FrameDeadlines, ArithmeticEndsAtTheLimits) {
    GfrTunables tunables;
    tunables.jankThresholds = {1.3f, kInfinity, -1e30f, kNaN};
    tunables.golden = -kInfinity;
    const FrameDeadlines d = at(kMaxNs, 0.0f, tunables);
    EXPECT_EQ((std::vector<nsecs_t>{kMaxNs, kMaxNs, kMinNs, 0}), d.jankDeadlinesNs);
    EXPECT_EQ(kMinNs, d.goldenNs);

    for (nsecs_t time : {kMinNs, nsecs_t{-1}, nsecs_t{0}, kMaxNs}) {
        for (nsecs_t other : {kMinNs, nsecs_t{-1}, nsecs_t{0}, kMaxNs}) {
            d.adjustedL0DelayNs(time, other);
            for (int level = 0; d.hasLevel(level); ++level) {
                EXPECT_GE(d.checkDelayNs(level, time, other, kMaxNs), 0);
            }
        }
    }
}

}  // namespace
}  // namespace android
