// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

#include "gfr/BoostFrequency.h"

namespace android {
namespace {

constexpr nsecs_t kGolden = 6'000'000;
constexpr nsecs_t kFar = 2 * kGolden + 1;
constexpr int32_t kMaxInt = std::numeric_limits<int32_t>::max();
constexpr nsecs_t kMaxNs = std::numeric_limits<nsecs_t>::max();

// A check of level 1 of three, with plain tunables.
struct Check {
    FrameDeadlines due;
    GfrTunables tune;
    FrameDropWindow dropWindow;
    int level = 1;
    nsecs_t l0DelayNs = 0;
    int32_t lastBoostMHz = 0;
    int32_t maxMHz = 3000;

    Check() {
        due.periodNs = 10'000'000;
        due.goldenNs = kGolden;
        due.jankDeadlinesNs = {13'000'000, 16'000'000, 19'000'000};
        tune.histJank = true;
    }

    void adjustLevel0() {
        level = 0;
        l0DelayNs = 1;
    }

    std::optional<BoostDecision> decide(nsecs_t ttdNs, int32_t baseMHz) const {
        return decideBoost(
                {level, baseMHz, ttdNs, l0DelayNs, lastBoostMHz, maxMHz, due, tune, dropWindow});
    }
};

const std::vector<int> kThreeDropsLongAgo = {3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};

const struct {
    const char* what;
    int32_t freqMHz;
    uint32_t flags;
    nsecs_t ttdNs = kGolden;
    int32_t baseMHz = 500;
    std::vector<int> drops = {};  // of successive latches
    void (*set)(Check&) = [](Check&) {};
} kCases[] = {
        {"beyond twice golden", 500, 0x002, kFar},
        {"lower boosts", 0, 0x081, kFar, 500, {}, [](auto& c) { c.tune.lowerBoost = true; }},
        {"exactly twice golden", 500, 0x004, 2 * kGolden},
        {"just over golden", 999, 0x004, kGolden + 10'000},
        {"exactly golden", 1000, 0x008},
        {"at the deadline", 1500, 0x008, 0},
        {"gain", 1250, 0x008, kGolden, 500, {}, [](auto& c) { c.tune.kFactor = 1.5f; }},

        // Passed deadlines and the last level leave history, floor and cap out.
        {"passed", 50, 0x400, -1, 50, {3}, [](auto& c) { c.lastBoostMHz = 40; }},
        {"passed, boosted", 4000, 0x400, -1, 50, {}, [](auto& c) { c.lastBoostMHz = 4000; }},
        {"last level", 5000, 0x200, kGolden, 5000, {3}, [](auto& c) { c.level = 2; }},
        {"last level, passed", 50, 0x200, -1, 50, {}, [](auto& c) { c.level = 2; }},

        {"not level 0", 1000, 0x008, kGolden, 500, {}, [](auto& c) { c.l0DelayNs = 1; }},
        {"adjusted level 0, passed", 500, 0x410, -1, 500, {}, [](auto& c) { c.adjustLevel0(); }},
        {"unadjusted level 0", 1000, 0x008, kGolden, 500, {}, [](auto& c) { c.level = 0; }},

        // Budgets that nothing can be divided by.
        {"golden 0", 500, 0x800, 1, 500, {}, [](auto& c) { c.due.goldenNs = 0; }},
        {"period 0", 625, 0x820, 1, 500, {1}, [](auto& c) { c.due.periodNs = 0; }},

        {"history off", 1000, 0x008, kGolden, 500, {3}, [](auto& c) { c.tune.histJank = false; }},
        {"2 drops, recent", 1250, 0x028, kGolden, 500, {2}},
        {"3 drops, recent", 1500, 0x048, kGolden, 500, {3}},
        {"3 drops, long ago", 1250, 0x028, kGolden, 500, kThreeDropsLongAgo},

        {"99 MHz", 0, 0x082, kFar, 99},
        {"100 MHz", 100, 0x002, kFar, 100},
        {"history lifts over the floor", 100, 0x022, kFar, 80, {1}},
        {"at the maximum", 1000, 0x008, kGolden, 500, {}, [](auto& c) { c.maxMHz = 1000; }},
        {"above the maximum", 999, 0x108, kGolden, 500, {}, [](auto& c) { c.maxMHz = 999; }},

        // Numbers that no tunables should carry, but that must end somewhere.
        {"result beyond int", 3000, 0x148, 0, kMaxInt, {3}},
        {"huge golden", 1000, 0x008, 0, 500, {}, [](auto& c) { c.due.goldenNs = kMaxNs; }},
        {"no number", 0, 0x088, 0, 500, {}, [](auto& c) { c.tune.kFactor = std::nanf(""); }},
        {"negative base", 0, 0x088, kGolden, -500},
};

TEST(BoostFrequency, FollowsItsRules) {
    for (const auto& row : kCases) {
        SCOPED_TRACE(row.what);
        Check check;
        for (int count : row.drops) check.dropWindow.record(count);
        row.set(check);
        const auto decision = check.decide(row.ttdNs, row.baseMHz);
        ASSERT_TRUE(decision);
        EXPECT_EQ(row.freqMHz, decision->freqMHz);
        EXPECT_EQ(row.flags, decision->flags);
    }
}

TEST(BoostFrequency, EndsAtItsLimits) {
    Check check;
    for (int level : {-1, 3, kMaxInt}) {
        check.level = level;
        EXPECT_FALSE(check.decide(kGolden, 500)) << level;
    }
    const nsecs_t longAgo = std::numeric_limits<nsecs_t>::min();
    const auto late = calculateFrequencyByTTD(check.due, check.tune, longAgo, 500);
    EXPECT_EQ(kMaxInt, late.freqMHz);

    for (const auto& [top, expected] : {std::pair{800, 800}, {3000, 3000}, {3001, 3000}}) {
        check.tune.baseFreq = {500, top};
        EXPECT_EQ(expected, maxBoostMHz(check.tune));
    }
    check.tune.baseFreq = {};
    EXPECT_EQ(3000, maxBoostMHz(check.tune));
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
    EXPECT_EQ(8, window.dropsAmong(9));
    for (int i = 0; i < 54; ++i) window.record(0);
    EXPECT_EQ(9, window.dropsAmong(64));
    window.record(0);
    EXPECT_EQ(8, window.dropsAmong(64));

    for (int extreme : {10, 64, kMaxInt}) {
        window.record(1);
        EXPECT_FALSE(window.record(extreme));
        EXPECT_EQ(0u, window.bits()) << extreme;
    }
}

}  // namespace
}  // namespace android
