// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include "layers/LayerCandidate.h"

namespace android {
namespace {

constexpr nsecs_t kStart = 5'000'000'000;

// Buffers at a steady interval until promotion; 0 when there is none among the first thousand.
int buffersToPromotion(nsecs_t interval) {
    LayerCandidate candidate;
    for (int i = 0; i < 1'000; ++i) {
        if (candidate.updateAndCheckPromotion(kStart + i * interval)) return i + 1;
    }
    return 0;
}

TEST(LayerCandidateTest, PromotesSteadyLayersOnly) {
    EXPECT_EQ(buffersToPromotion(33'333'334), 16) << "30 fps: the first at or after half a second";
    EXPECT_EQ(buffersToPromotion(8'333'333), 62) << "120 fps: 60 intervals fall 20 ns short";
    EXPECT_EQ(buffersToPromotion(500'000'000 / 12), 14) << "24 fps: the 12th interval falls short";
    EXPECT_EQ(buffersToPromotion(43'478'260), 13) << "just above 23 fps";
    EXPECT_EQ(buffersToPromotion(43'478'800), 0) << "just below";
    EXPECT_EQ(buffersToPromotion(50'000'000), 0) << "20 fps";
    EXPECT_EQ(buffersToPromotion(0), 0) << "no time passes";
}

TEST(LayerCandidateTest, ASlowWindowStartsOver) {
    LayerCandidate candidate;
    EXPECT_FALSE(candidate.updateAndCheckPromotion(kStart));
    EXPECT_FALSE(candidate.updateAndCheckPromotion(kStart + 900'000'000));
    EXPECT_EQ(candidate.firstSeen, kStart + 900'000'000);
    EXPECT_EQ(candidate.frameCount, 1);
    EXPECT_EQ(candidate.lastSeen, kStart + 900'000'000);
}

}  // namespace
}  // namespace android
