// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <limits>
#include <optional>
#include <random>
#include <utility>

#include "gfr/BoostFrequency.h"

namespace android {
namespace {

constexpr nsecs_t kGolden = 6'000'000;
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
    }

    std::optional<BoostDecision> decide(nsecs_t ttdNs, int32_t baseMHz) const {
        BoostInputs inputs(due, tune, dropWindow);
        inputs.level = level;
        inputs.baseMHz = baseMHz;
        inputs.ttdNs = ttdNs;
        inputs.l0DelayNs = l0DelayNs;
        inputs.lastBoostMHz = lastBoostMHz;
        inputs.maxFreqMHz = maxMHz;
        return decideBoost(inputs);
    }
};

// What the model below leaves out.
const struct {
    const char* what;
    int32_t freqMHz;
    uint32_t flags;
    nsecs_t ttdNs;
    int32_t baseMHz = 500;
    void (*set)(Check&) = [](Check&) {};
} kCases[] = {
        {"just over twice golden", 500, 0x002, 2 * kGolden + 1},
        {"just over golden", 999, 0x004, kGolden + 10'000},

        // Budgets that nothing can be divided by.
        {"golden 0", 500, 0x800, 1, 500, [](auto& c) { c.due.goldenNs = 0; }},
        {"period 0", 500, 0x800, 1, 500, [](auto& c) { c.due.periodNs = 0; }},

        // Numbers that no tunables should carry, but that must end somewhere.
        {"result beyond int", 3000, 0x108, 0, kMaxInt},
        {"huge golden", 1000, 0x008, 0, 500, [](auto& c) { c.due.goldenNs = kMaxNs; }},
        {"no number", 0, 0x088, 0, 500, [](auto& c) { c.tune.kFactor = std::nanf(""); }},
};

TEST(BoostFrequency, BearsWhatCannotBeComputed) {
    for (const auto& row : kCases) {
        SCOPED_TRACE(row.what);
        Check check;
        row.set(check);
        const auto decision = check.decide(row.ttdNs, row.baseMHz);
        ASSERT_TRUE(decision);
        EXPECT_EQ(row.freqMHz, decision->freqMHz);
        EXPECT_EQ(row.flags, decision->flags);
    }
}

// The rules in whole numbers: `ttd` in sixteenths of golden, `gain` in quarters, which single
// precision holds exactly. `drops` tells of each frame, newest first, whether it was dropped.
std::pair<int64_t, uint32_t> modelled(const Check& check, int64_t ttd, int64_t gain, int64_t base,
                                      const std::deque<bool>& drops) {
    const uint32_t adjusted = check.level == 0 && check.l0DelayNs > 0 ? 0x010 : 0;
    if (check.level == 2) return {base, adjusted | 0x200};
    if (ttd < 0) return {std::max<int64_t>(check.lastBoostMHz, base), adjusted | 0x400};
    int64_t boost = base;
    uint32_t flags = adjusted | 0x002;
    if (ttd <= 32) {
        boost = std::max<int64_t>((64 + gain * (32 - ttd)) * base / 64, 0);
        flags = adjusted | (ttd > 16 ? 0x004 : 0x008);
    } else if (check.tune.lowerBoost) {
        boost = 0;
        flags = adjusted | 0x001;
    }
    const auto dropped = [&](size_t frames) {
        const auto end = drops.begin() + static_cast<long>(std::min(frames, drops.size()));
        return std::count(drops.begin(), end, true);
    };
    const int reasons = check.tune.histJank ? (dropped(16) >= 1) + (dropped(64) >= 3) : 0;
    boost += reasons == 2 ? boost >> 1 : reasons == 1 ? boost >> 2 : 0;
    flags |= reasons == 2 ? 0x040 : reasons == 1 ? 0x020 : 0;
    if (boost < 100) boost = 0, flags |= 0x080;
    if (boost > check.maxMHz) boost = check.maxMHz, flags |= 0x100;
    return {boost, flags};
}

TEST(BoostFrequency, FollowsTheRules) {
    constexpr nsecs_t kUnit = nsecs_t{1} << 20;
    std::minstd_rand random(1);
    const auto between = [&random](int low, int high) {
        return std::uniform_int_distribution<int>(low, high)(random);
    };
    Check check;
    check.due.goldenNs = 16 * kUnit;
    std::deque<bool> drops;
    for (int step = 0; step < 20'000; ++step) {
        const int count = between(0, 9) == 0 ? between(0, 10) : 0;
        check.dropWindow.record(count);
        drops.push_front(false);
        for (int i = 0; i < count; ++i) {
            if (i < static_cast<int>(drops.size()))
                drops[static_cast<size_t>(i)] = true;
            else
                drops.push_back(true);
        }
        if (count == 10) drops.clear();
        check.level = between(0, 2);
        check.l0DelayNs = between(0, 1);
        check.lastBoostMHz = between(0, 4'000);
        check.maxMHz = between(-500, 3'000);
        check.tune.lowerBoost = between(0, 1) == 1;
        check.tune.histJank = between(0, 3) != 0;
        const int ttd = between(-4, 40);
        const int gain = between(0, 12);
        const int base = between(-200, 3'000) / (step % 4 * 5 + 1);
        check.tune.kFactor = static_cast<float>(gain) / 4;
        const auto decision = check.decide(ttd * kUnit, base);
        const auto [boost, flags] = modelled(check, ttd, gain, base, drops);
        ASSERT_TRUE(decision);
        ASSERT_EQ(boost, decision->freqMHz) << step;
        ASSERT_EQ(flags, decision->flags) << step;
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

TEST(FrameDropWindow, BearsAnyNumberOfDrops) {
    FrameDropWindow window;
    for (int none : {0, -5, std::numeric_limits<int>::min()}) {
        window.record(1);
        EXPECT_TRUE(window.record(none));
        EXPECT_EQ(0, window.dropsAmong(1)) << none;
    }
    EXPECT_EQ(3, window.dropsAmong(64));
    for (int extreme : {10, 64, kMaxInt}) {
        window.record(9);
        EXPECT_FALSE(window.record(extreme));
        EXPECT_EQ(0, window.dropsAmong(64)) << extreme;
    }
}

}  // namespace
}  // namespace android
