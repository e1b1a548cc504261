// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Numbers that no tunables and no clock should bring about, but that must end somewhere.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "gfr/BoostFrequency.h"

namespace android {
namespace {

constexpr nsecs_t kMs = 1'000'000;
constexpr nsecs_t kPeriod = 10 * kMs;
constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr int32_t kMaxInt = std::numeric_limits<int32_t>::max();
constexpr nsecs_t kMaxNs = std::numeric_limits<nsecs_t>::max();
constexpr nsecs_t kMinNs = std::numeric_limits<nsecs_t>::min();

FrameDeadlines at(nsecs_t period, float fps = 0.0f, const GfrTunables& tunables = {}) {
    FrameDeadlines deadlines;
    deadlines.update(period, fps, tunables, /*resendVariation=*/0.25f, /*force=*/false);
    return deadlines;
}

TEST(ArithmeticTest, BoostsEndAtTheirLimits) {
    const struct {
        const char* what;
        int32_t freqMHz;
        uint32_t flags;
        nsecs_t ttdNs;
        int32_t baseMHz;
        nsecs_t goldenNs = 6 * kMs;
        float kFactor = 1.0f;
        nsecs_t periodNs = kPeriod;
    } cases[] = {
            {"exactly twice golden", 500, 0x004, 12 * kMs, 500},
            {"exactly golden", 1000, 0x008, 6 * kMs, 500},
            {"period 0", 500, 0x800, 1, 500, 6 * kMs, 1.0f, 0},
            {"beyond int", 3000, 0x108, 0, kMaxInt},
            {"huge golden", 1000, 0x008, 0, 500, kMaxNs},
            {"no number", 0, 0x088, 0, 500, 6 * kMs, std::nanf("")},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        FrameDeadlines deadlines = at(kPeriod);
        deadlines.goldenNs = c.goldenNs;
        deadlines.periodNs = c.periodNs;
        GfrTunables tunables;
        tunables.kFactor = c.kFactor;
        const FrameDropWindow window;
        BoostInputs inputs(deadlines, tunables, window);
        inputs.level = 1;
        inputs.baseMHz = c.baseMHz;
        inputs.ttdNs = c.ttdNs;
        inputs.maxFreqMHz = 3000;
        const auto decision = decideBoost(inputs);
        ASSERT_TRUE(decision);
        EXPECT_EQ(c.freqMHz, decision->freqMHz);
        EXPECT_EQ(c.flags, decision->flags);
        for (int level : {-1, 3, kMaxInt}) {
            inputs.level = level;
            EXPECT_FALSE(decideBoost(inputs)) << level;
        }
    }
    EXPECT_EQ(kMaxInt, calculateFrequencyByTTD(at(kPeriod), {}, kMinNs, 500).freqMHz);
    GfrTunables lower;
    lower.lowerBoost = true;
    EXPECT_EQ(0, calculateFrequencyByTTD(at(kPeriod), lower, 12 * kMs + 1, 500).freqMHz);
}

TEST(ArithmeticTest, AnyNumberOfDropsIsRecorded) {
    FrameDropWindow window;
    for (int none : {0, -5, std::numeric_limits<int>::min()}) {
        window.record(1);
        EXPECT_TRUE(window.record(none));
        EXPECT_EQ(0, window.dropsAmong(1)) << none;
    }
    EXPECT_EQ(3, window.dropsAmong(64));
    EXPECT_FALSE(window.record(kMaxInt));
    EXPECT_EQ(0, window.dropsAmong(64));
}

TEST(ArithmeticTest, DeadlinesEndAtTheirLimits) {
    EXPECT_EQ(16'666'667, at(kPeriod, 60.0f).periodNs);  // 1e9 / 60 in float, truncated
    for (float none : {-40.0f, std::nanf(""), kInfinity}) {
        const FrameDeadlines d = at(kPeriod, none);
        EXPECT_EQ(none == kInfinity ? -1 : kPeriod, d.periodNs) << none;
    }
    GfrTunables tunables;
    tunables.jankThresholds = {1.3f, kInfinity, -1e30f, std::nanf("")};
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
