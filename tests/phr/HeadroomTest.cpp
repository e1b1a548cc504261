// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <optional>

#include "phr/Headroom.h"

namespace android {
namespace {

constexpr nsecs_t kMs = 1'000'000;
constexpr nsecs_t kPeriod = 16 * kMs;  // exact in single precision; a tenth of it is 1.6 ms
constexpr nsecs_t kMaxTime = std::numeric_limits<nsecs_t>::max();
constexpr nsecs_t kMinTime = std::numeric_limits<nsecs_t>::min();

TEST(HeadroomTest, PresetKeepsClearOfVsyncs) {
    const struct {
        float rate;
        nsecs_t preset;
    } cases[] = {
            {0.5f, 8 * kMs},
            {3.0f, 3 * kPeriod + 3 * kMs / 2},     // at a vsync
            {2.9375f, 3 * kPeriod - 3 * kMs / 2},  // 1 ms before one
            {3.0625f, 3 * kPeriod + 3 * kMs / 2},  // 1 ms after one
            {0.09375f, 3 * kMs / 2},               // just far enough after
            {0.90625f, kPeriod - 3 * kMs / 2},     // just far enough before
            {0.001f, 3 * kMs / 2},
            {std::nanf(""), 3 * kMs / 2},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(deriveHeadroomRange(c.rate, 0.0f, kPeriod).preset, c.preset) << c.rate;
    }
}

TEST(HeadroomTest, CeilingIsNeverBelowThePreset) {
    EXPECT_EQ(deriveHeadroomRange(0.5f, 2.0f, kPeriod).max, 2 * kPeriod);
    EXPECT_EQ(deriveHeadroomRange(0.5f, 0.25f, kPeriod).max, 8 * kMs);
    const HeadroomRange huge = deriveHeadroomRange(std::numeric_limits<float>::infinity(),
                                                   std::numeric_limits<float>::infinity(), 3);
    EXPECT_EQ(huge.preset, kMaxTime);
    EXPECT_EQ(huge.max, kMaxTime);
    EXPECT_EQ(deriveHeadroomRange(-0.9f, 0.0f, kMaxTime).preset, 3 * kMs / 2);
}

TEST(HeadroomTest, SnapsClearOfVsyncsInTheDirectionOfTravel) {
    constexpr nsecs_t kGuard = kPeriod / 10;
    constexpr nsecs_t kVsync = 2 * kPeriod;
    const struct {
        nsecs_t candidate;
        nsecs_t down;
        nsecs_t up;
    } cases[] = {
            {kVsync, kVsync - kGuard, kVsync + kGuard},
            {kVsync + kGuard - 1, kVsync - kGuard, kVsync + kGuard},
            {kVsync + kGuard, kVsync + kGuard, kVsync + kGuard},
            {kVsync - kGuard, kVsync - kGuard, kVsync - kGuard},
            {kVsync - kGuard + 1, kVsync - kGuard, kVsync + kGuard},
            {kVsync + kPeriod / 2, kVsync + kPeriod / 2, kVsync + kPeriod / 2},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(avoidVsync(c.candidate, kPeriod, true), c.down) << c.candidate;
        EXPECT_EQ(avoidVsync(c.candidate, kPeriod, false), c.up) << c.candidate;
    }
    EXPECT_EQ(avoidVsync(kMinTime, kMaxTime, true), kMinTime);
}

TEST(HeadroomTest, StepsWithinItsRange) {
    constexpr HeadroomRange kRange{5 * kMs, 40 * kMs};
    constexpr nsecs_t kGuard = kPeriod / 10;
    const struct {
        const char* what;
        nsecs_t headroom;
        bool decrease;
        nsecs_t step;
        std::optional<nsecs_t> next;
    } cases[] = {
            {"down at the preset", 5 * kMs, true, kMs, std::nullopt},
            {"up at the ceiling", 40 * kMs, false, kMs, std::nullopt},
            {"free step down", 10 * kMs, true, kMs, 9 * kMs},
            {"free step up", 8 * kMs, false, kMs, 9 * kMs},
            {"down ends at the preset", 5 * kMs + 1, true, kMs, 5 * kMs},
            {"down below the preset", 4 * kMs, true, kMs, 5 * kMs},
            {"up ends at the ceiling", 40 * kMs - 1, false, kMs, 40 * kMs},
            {"above a lowered ceiling, up", 45 * kMs, false, kMs, 40 * kMs},
            {"above a lowered ceiling, down", 45 * kMs, true, kMs, 40 * kMs},
            {"down past a vsync", 18 * kMs, true, kMs, kPeriod - kGuard},
            {"up past a vsync", 14 * kMs, false, kMs, kPeriod + kGuard},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(stepHeadroom(c.headroom, kRange, kPeriod, c.decrease, c.step), c.next) << c.what;
    }
    // A snap that would leave the range ends at its end.
    EXPECT_EQ(stepHeadroom(18 * kMs, {15 * kMs, 40 * kMs}, kPeriod, true, kMs), 15 * kMs);
    EXPECT_EQ(stepHeadroom(14 * kMs, {5 * kMs, 17 * kMs}, kPeriod, false, kMs), 17 * kMs);
    // Not derived yet: both ends are where it stands.
    EXPECT_EQ(stepHeadroom(-1, {-1, -1}, kPeriod, true, kMs), std::nullopt);
    EXPECT_EQ(stepHeadroom(-1, {-1, -1}, kPeriod, false, kMs), std::nullopt);
    EXPECT_EQ(stepHeadroom(kMaxTime - 1, {0, kMaxTime}, kPeriod, false, kMs), kMaxTime);
}

TEST(HeadroomTest, CurrentHeadroomReachesToTheVsyncThatShowsTheBuffer) {
    EXPECT_EQ(currentHeadroom(100 * kMs, 101 * kMs, kPeriod, 0), 15 * kMs);
    EXPECT_EQ(currentHeadroom(100 * kMs, 101 * kMs, kPeriod, 2), 47 * kMs);
    EXPECT_EQ(currentHeadroom(0, 101 * kMs, kPeriod, 0), -85 * kMs);
    EXPECT_EQ(currentHeadroom(kMaxTime, -1, kMaxTime, std::numeric_limits<int32_t>::max()),
              kMaxTime);
}

TEST(HeadroomTest, HeadroomPointLiesBeforeTheNextVsync) {
    EXPECT_EQ(vsyncToHeadroomPoint(5 * kMs, kPeriod), 11 * kMs);
    EXPECT_EQ(vsyncToHeadroomPoint(kPeriod + 5 * kMs, kPeriod), 11 * kMs);
    EXPECT_EQ(vsyncToHeadroomPoint(kPeriod, kPeriod), kPeriod);
    EXPECT_EQ(vsyncToHeadroomPoint(-1, kPeriod), kPeriod + 1);
    EXPECT_EQ(vsyncToHeadroomPoint(-1, kMaxTime), kMaxTime);
}

}  // namespace
}  // namespace android
