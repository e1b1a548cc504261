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
constexpr nsecs_t kPeriod = 16 * kMs;  // exact in single precision
constexpr nsecs_t kGuard = kPeriod / 10;
constexpr float kInfinity = std::numeric_limits<float>::infinity();

TEST(HeadroomTest, PresetKeepsClearOfVsyncsAndTheCeilingAbove) {
    const struct {
        float rate;
        nsecs_t preset;
    } cases[] = {
            {0.5f, 8 * kMs},
            {3.0f, 3 * kPeriod + 3 * kMs / 2},     // at a vsync
            {2.9375f, 3 * kPeriod - 3 * kMs / 2},  // 1 ms before one
            {0.09375f, 3 * kMs / 2},               // just far enough after
            {0.90625f, kPeriod - 3 * kMs / 2},     // just far enough before
            {std::nanf(""), 3 * kMs / 2},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(deriveHeadroomRange(c.rate, 0.0f, kPeriod).preset, c.preset) << c.rate;
    }
    EXPECT_EQ(deriveHeadroomRange(0.5f, 2.0f, kPeriod).max, 2 * kPeriod);
    EXPECT_EQ(deriveHeadroomRange(0.5f, 0.25f, kPeriod).max, 8 * kMs);
    EXPECT_EQ(deriveHeadroomRange(kInfinity, kInfinity, 3).preset, INT64_MAX);
    EXPECT_EQ(deriveHeadroomRange(-0.9f, 0.0f, INT64_MAX).preset, 3 * kMs / 2);
}

TEST(HeadroomTest, StepsEndWhereTheyMust) {
    const struct {
        const char* what;
        nsecs_t headroom;
        bool decrease;
        std::optional<nsecs_t> next;
        HeadroomRange range = {5 * kMs, 40 * kMs};
    } cases[] = {
            {"a guard's length after a vsync", kPeriod + kGuard + kMs, true, kPeriod + kGuard},
            {"a guard's length before one", kPeriod - kGuard - kMs, false, kPeriod - kGuard},
            {"above a lowered ceiling, up", 45 * kMs, false, 40 * kMs},
            {"above a lowered ceiling, down", 45 * kMs, true, 40 * kMs},
            {"down past a vsync and the range", 18 * kMs, true, 15 * kMs, {15 * kMs, 40 * kMs}},
            {"up past a vsync and the range", 14 * kMs, false, 17 * kMs, {5 * kMs, 17 * kMs}},
            {"not derived yet", -1, true, std::nullopt, {-1, -1}},
            {"huge", INT64_MAX - 1, false, INT64_MAX, {0, INT64_MAX}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(stepHeadroom(c.headroom, c.range, kPeriod, c.decrease, kMs), c.next) << c.what;
    }
    EXPECT_EQ(avoidVsync(INT64_MIN, INT64_MAX, true), INT64_MIN);
}

TEST(HeadroomTest, DistancesToVsyncsDoNotOverflow) {
    EXPECT_EQ(currentHeadroom(INT64_MAX, -1, INT64_MAX, INT32_MAX), INT64_MAX);
    EXPECT_EQ(vsyncToHeadroomPoint(-1, kPeriod), kPeriod + 1);
    EXPECT_EQ(vsyncToHeadroomPoint(-1, INT64_MAX), INT64_MAX);
}

}  // namespace
}  // namespace android
