// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <limits>

#include "gfr/FrameDeadlines.h"
#include "gfr/FrameDropWindow.h"

namespace android {
namespace {

constexpr nsecs_t kMs = 1'000'000;
constexpr nsecs_t kPeriod = 10 * kMs;
constexpr float kVariation = 0.25f;
constexpr nsecs_t kMaxNs = std::numeric_limits<nsecs_t>::max();
constexpr nsecs_t kMinNs = std::numeric_limits<nsecs_t>::min();

FrameDeadlines at(nsecs_t period, float fps = 0.0f, const GfrTunables& tunables = {}) {
    FrameDeadlines deadlines;
    deadlines.update(period, fps, tunables, kVariation, /*force=*/false);
    return deadlines;
}

TEST(FrameDeadlines, AreProductsOfThePeriod) {
    const FrameDeadlines d = at(kPeriod);
    EXPECT_EQ(kPeriod, d.periodNs);
    EXPECT_EQ(2'500'000, d.resendThresholdNs);
    EXPECT_EQ((std::vector<nsecs_t>{13 * kMs, 16 * kMs, 19 * kMs}), d.jankDeadlinesNs);
    EXPECT_EQ(8 * kMs, d.minL0DelayNs);
    EXPECT_EQ(6 * kMs, d.goldenNs);
}

TEST(FrameDeadlines, OwnRateReplacesTheDisplays) {
    EXPECT_EQ(25 * kMs, at(kPeriod, 40.0f).periodNs);
    EXPECT_EQ(kPeriod, at(kPeriod, 40.0f).vsyncPeriodNs);
    EXPECT_EQ(kPeriod, at(kPeriod, 0.01f).periodNs);
    EXPECT_EQ(kPeriod, at(kPeriod, -40.0f).periodNs);
    EXPECT_EQ(kPeriod, at(kPeriod, std::numeric_limits<float>::quiet_NaN()).periodNs);
    // 1e9 / 60 in float, truncated.
    EXPECT_EQ(16'666'667, at(kPeriod, 60.0f).periodNs);
}

TEST(FrameDeadlines, OnlyANewPositivePeriodUpdatesUnlessForced) {
    FrameDeadlines d = at(kPeriod);
    GfrTunables changed;
    changed.golden = 1.0f;

    d.update(kPeriod, 0.0f, changed, kVariation, /*force=*/false);
    EXPECT_EQ(6 * kMs, d.goldenNs);
    for (nsecs_t period : {nsecs_t{0}, nsecs_t{-1}, kMinNs}) {
        d.update(period, 0.0f, changed, kVariation, /*force=*/false);
        EXPECT_EQ(kPeriod, d.periodNs);
    }
    // A rate so high that no period is left.
    d.update(kPeriod, std::numeric_limits<float>::infinity(), changed, kVariation, false);
    EXPECT_EQ(kPeriod, d.periodNs);

    d.update(kPeriod, 0.0f, changed, kVariation, /*force=*/true);
    EXPECT_EQ(10 * kMs, d.goldenNs);
    d.update(-1, 0.0f, changed, kVariation, /*force=*/true);
    EXPECT_EQ(-1, d.periodNs);
}

TEST(FrameDeadlines, Level0WaitsForTheGoldenBudget) {
    const FrameDeadlines d = at(kPeriod);  // deadline 13, golden 6, shortest delay 8 ms
    constexpr nsecs_t kQueueEnd = 100 * kMs;
    const auto adjusted = [&](nsecs_t frameDeadline) {
        return d.adjustedL0DelayNs(frameDeadline, kQueueEnd);
    };
    // The level's own check would leave exactly golden.
    EXPECT_EQ(0, adjusted(kQueueEnd + 19 * kMs));
    EXPECT_EQ(13 * kMs - 1, adjusted(kQueueEnd + 19 * kMs - 1));
    EXPECT_EQ(8 * kMs + 1, adjusted(kQueueEnd + 14 * kMs + 1));
    EXPECT_EQ(8 * kMs, adjusted(kQueueEnd + 14 * kMs - 1));
    EXPECT_EQ(8 * kMs, adjusted(0));
}

TEST(FrameDeadlines, CheckDelaysCountFromQueueEndThenFromTheCheckBefore) {
    const FrameDeadlines d = at(kPeriod);
    EXPECT_EQ(13 * kMs, d.checkDelayNs(0, 100, 100, 0));
    EXPECT_EQ(11 * kMs, d.checkDelayNs(0, 2 * kMs, 0, 0));
    EXPECT_EQ(7 * kMs, d.checkDelayNs(0, 2 * kMs, 0, 9 * kMs));
    EXPECT_EQ(13 * kMs, d.checkDelayNs(0, 0, 0, -1));
    EXPECT_EQ(0, d.checkDelayNs(0, 13 * kMs + 1, 0, 0));
    EXPECT_EQ(3 * kMs, d.checkDelayNs(1, 500 * kMs, 0, 9 * kMs));
    EXPECT_EQ(3 * kMs, d.checkDelayNs(2, 500 * kMs, 0, 0));
    // Thresholds out of order.
    GfrTunables tunables;
    tunables.jankThresholds = {1.6f, 1.3f};
    EXPECT_EQ(0, at(kPeriod, 0.0f, tunables).checkDelayNs(1, 0, 0, 0));
}

TEST(FrameDeadlines, ArithmeticEndsAtTheLimits) {
    GfrTunables tunables;
    tunables.jankThresholds = {1.3f, std::numeric_limits<float>::infinity(), -1e30f,
                               std::numeric_limits<float>::quiet_NaN()};
    tunables.golden = -std::numeric_limits<float>::infinity();
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

TEST(FrameDropWindow, MovesByOneSlotAndMarksTheDrops) {
    FrameDropWindow window;
    const struct {
        int drops;
        uint64_t expected;
    } steps[] = {{0, 0x0}, {1, 0x1}, {0, 0x2}, {3, 0x7}, {-5, 0xe}, {9, 0x1ff}, {0, 0x3fe}};
    for (const auto& step : steps) {
        EXPECT_TRUE(window.record(step.drops));
        EXPECT_EQ(step.expected, window.bits()) << step.drops;
    }
    EXPECT_EQ(9, window.dropsAmong(64));
    EXPECT_EQ(8, window.dropsAmong(9));

    for (int extreme : {10, 64, std::numeric_limits<int>::max()}) {
        window.record(1);
        EXPECT_FALSE(window.record(extreme));
        EXPECT_EQ(0u, window.bits()) << extreme;
    }
}

TEST(FrameDropWindow, ForgetsAfter64Slots) {
    FrameDropWindow window;
    window.record(1);
    for (int i = 0; i < 63; ++i) window.record(0);
    EXPECT_EQ(1, window.dropsAmong(64));
    EXPECT_EQ(0, window.dropsAmong(32));
    window.record(0);
    EXPECT_EQ(0, window.dropsAmong(64));
}

}  // namespace
}  // namespace android
