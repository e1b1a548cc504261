// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <ostream>
#include <utility>
#include <vector>

#include "gfr/BoostFrequency.h"

namespace android {
namespace {

constexpr nsecs_t kPeriod = 10'000'000;
constexpr nsecs_t kGolden = 6'000'000;
constexpr nsecs_t kFar = 2 * kGolden + 1;
constexpr int32_t kMaxInt = std::numeric_limits<int32_t>::max();
constexpr nsecs_t kMaxNs = std::numeric_limits<nsecs_t>::max();
constexpr nsecs_t kMinNs = std::numeric_limits<nsecs_t>::min();

// Drop histories, as the drops found by successive latches.
const std::vector<int> kRecent1 = {1};
const std::vector<int> kRecent2 = {2};
const std::vector<int> kRecent3 = {3};
const std::vector<int> kOld2 = {2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
const std::vector<int> kOld3 = {3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};

struct Case {
    Case(const char* caseName, int32_t freqMHz, uint32_t flags)
          : name(caseName), expectedMHz(freqMHz), expectedFlags(flags) {}

    Case& ttd(nsecs_t v) { return ttdNs = v, *this; }
    Case& base(int32_t v) { return baseMHz = v, *this; }
    Case& level(int v) { return checkLevel = v, *this; }
    Case& l0Delay(nsecs_t v) { return l0DelayNs = v, *this; }
    Case& lowerBoost() { return tunables.lowerBoost = true, *this; }
    Case& kFactor(float v) { return tunables.kFactor = v, *this; }
    Case& history(const std::vector<int>& v) {
        for (int count : v) dropWindow.record(count);
        return tunables.histJank = true, *this;
    }
    Case& historyOff() { return tunables.histJank = false, *this; }
    Case& lastBoost(int32_t v) { return lastBoostMHz = v, *this; }
    Case& max(int32_t v) { return maxFreqMHz = v, *this; }
    Case& golden(nsecs_t v) { return goldenNs = v, *this; }
    Case& period(nsecs_t v) { return periodNs = v, *this; }

    const char* name;
    int32_t expectedMHz;
    uint32_t expectedFlags;
    nsecs_t ttdNs = kGolden;
    int32_t baseMHz = 500;
    int checkLevel = 1;  // of three
    nsecs_t l0DelayNs = 0;
    GfrTunables tunables;
    FrameDropWindow dropWindow;
    int32_t lastBoostMHz = 0;
    int32_t maxFreqMHz = 3000;
    nsecs_t goldenNs = kGolden;
    nsecs_t periodNs = kPeriod;
};

void PrintTo(const Case& c, std::ostream* out) {
    *out << c.name;
}

const Case kCases[] = {
        // Where the deadline lies.
        Case("beyond twice golden", 500, 0x002).ttd(kFar),
        Case("beyond twice golden, lower boosts", 0, 0x001 | 0x080).ttd(kFar).lowerBoost(),
        Case("exactly twice golden", 500, 0x004).ttd(2 * kGolden),
        Case("exactly twice golden, lower boosts", 500, 0x004).ttd(2 * kGolden).lowerBoost(),
        Case("one and a half golden", 750, 0x004).ttd(kGolden * 3 / 2),
        Case("just over golden", 999, 0x004).ttd(kGolden + 10'000),
        Case("exactly golden", 1000, 0x008),
        Case("half golden", 1250, 0x008).ttd(kGolden / 2),
        Case("at the deadline", 1500, 0x008).ttd(0),
        Case("higher gain", 1250, 0x008).kFactor(1.5f),
        Case("negative gain", 0, 0x008 | 0x080).kFactor(-5.0f),

        // Passed deadlines and the last level leave history, floor and cap out.
        Case("passed, base higher", 50, 0x400).ttd(-1).base(50).lastBoost(40),
        Case("passed, last boost higher", 4000, 0x400).ttd(-1).lastBoost(4000).history(kRecent3),
        Case("last level", 5000, 0x200).level(2).base(5000).history(kRecent3),
        Case("last level, passed", 50, 0x200).level(2).ttd(-1).base(50).lastBoost(900),

        Case("adjusted level 0", 1000, 0x010 | 0x008).level(0).l0Delay(1),
        Case("unadjusted level 0", 1000, 0x008).level(0),
        Case("adjusted level 0, passed", 500, 0x010 | 0x400).level(0).l0Delay(1).ttd(-1),
        Case("level 1 of an adjusted frame", 1000, 0x008).l0Delay(1),

        // Budgets that nothing can be divided by.
        Case("golden 0", 500, 0x800).golden(0),
        Case("golden negative", 500, 0x800).golden(-1),
        Case("period 0", 500, 0x800).period(0),
        Case("period unknown, with history", 625, 0x800 | 0x020).period(-1).history(kRecent1),

        Case("history off", 1000, 0x008).history(kRecent3).historyOff(),
        Case("no drops", 1000, 0x008).history({}),
        Case("1 drop, recent", 1250, 0x008 | 0x020).history(kRecent1),
        Case("2 drops, recent", 1250, 0x008 | 0x020).history(kRecent2),
        Case("3 drops, recent", 1500, 0x008 | 0x040).history(kRecent3),
        Case("2 drops, long ago", 1000, 0x008).history(kOld2),
        Case("3 drops, long ago", 1250, 0x008 | 0x020).history(kOld3),

        Case("99 MHz", 0, 0x002 | 0x080).ttd(kFar).base(99),
        Case("100 MHz", 100, 0x002).ttd(kFar).base(100),
        Case("history lifts over the floor", 100, 0x002 | 0x020)
                .ttd(kFar)
                .base(80)
                .history(kRecent1),
        Case("exactly the maximum", 1000, 0x008).max(1000),
        Case("above the maximum", 999, 0x008 | 0x100).max(999),

        // Numbers that no tunables should carry, but that must end somewhere.
        Case("result beyond int", 3000, 0x008 | 0x040 | 0x100)
                .ttd(0)
                .base(kMaxInt)
                .kFactor(5.0f)
                .history(kRecent3),
        Case("golden beyond half the range", 999, 0x008).golden(kMaxNs).ttd(kMaxNs / 1000),
        Case("gain not a number", 0, 0x008 | 0x080).kFactor(std::nanf("")),
        Case("base negative", 0, 0x008 | 0x080).base(-500),
};

FrameDeadlines deadlinesOf(const Case& c) {
    FrameDeadlines deadlines;
    deadlines.periodNs = c.periodNs;
    deadlines.goldenNs = c.goldenNs;
    deadlines.jankDeadlinesNs = {13'000'000, 16'000'000, 19'000'000};
    return deadlines;
}

const Case kDefault("default", 1000, 0x008);

class BoostFrequency : public testing::TestWithParam<Case> {};

TEST_P(BoostFrequency, FollowsItsRules) {
    const Case& c = GetParam();
    const FrameDeadlines deadlines = deadlinesOf(c);
    const auto decision =
            decideBoost({c.checkLevel, c.baseMHz, c.ttdNs, c.l0DelayNs, c.lastBoostMHz,
                         c.maxFreqMHz, deadlines, c.tunables, c.dropWindow});
    ASSERT_TRUE(decision);
    EXPECT_EQ(c.expectedMHz, decision->freqMHz);
    EXPECT_EQ(c.expectedFlags, decision->flags);
}

INSTANTIATE_TEST_SUITE_P(Table, BoostFrequency, testing::ValuesIn(kCases));

TEST(BoostFrequencyLimits, NothingIsDecidedForALevelWithoutADeadline) {
    const FrameDeadlines deadlines = deadlinesOf(kDefault);
    const GfrTunables tunables;
    const FrameDropWindow dropWindow;
    for (int level : {-1, 3, kMaxInt}) {
        EXPECT_FALSE(
                decideBoost({level, 500, kGolden, 1, 0, 3000, deadlines, tunables, dropWindow}))
                << level;
    }
}

TEST(BoostFrequencyLimits, TimesAtTheEndsOfTheirRangeDoNotOverflow) {
    const FrameDeadlines deadlines = deadlinesOf(kDefault);
    const GfrTunables tunables;
    EXPECT_EQ(500, calculateFrequencyByTTD(deadlines, tunables, kMaxNs, 500).freqMHz);
    EXPECT_EQ(kMaxInt, calculateFrequencyByTTD(deadlines, tunables, kMinNs, 500).freqMHz);
}

TEST(BoostFrequencyLimits, MaximumIsTheLastLevelsBaseUpTo3000) {
    const auto maxOf = [](std::vector<int32_t> baseFreq) {
        GfrTunables tunables;
        tunables.baseFreq = std::move(baseFreq);
        return maxBoostMHz(tunables);
    };
    EXPECT_EQ(3000, maxOf({}));
    EXPECT_EQ(800, maxOf({500, 800}));
    EXPECT_EQ(3000, maxOf({500, 3000}));
    EXPECT_EQ(3000, maxOf({500, 3001}));
}

}  // namespace
}  // namespace android
