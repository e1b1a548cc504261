// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <numeric>
#include <random>

#include "phr/FrameWeightWindow.h"

namespace android {
namespace {

TEST(FrameWeightWindowTest, WeighsFramesByPeriods) {
    constexpr nsecs_t kPeriod = 10'000'000;
    const struct {
        nsecs_t frameTime;
        int32_t weight;
    } cases[] = {
            {-1, 0},         {0, 0},          {7'999'999, 0},  {8'000'000, 1}, {11'999'999, 1},
            {12'000'000, 2}, {14'999'999, 2}, {15'000'000, 3}, {INT64_MAX, 3},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(frameWeight(frameTimeRatio(c.frameTime, kPeriod)), c.weight) << c.frameTime;
    }
}

// Against the plain definition: the last fifteen weights, their sum and their largest.
TEST(FrameWeightWindowTest, FollowsTheLastFifteenFrames) {
    std::minstd_rand random(1);
    // Runs of light frames let the heavy ones leave the window one by one.
    std::discrete_distribution<int32_t> weights({8, 8, 1, 1});
    FrameWeightWindow window;
    std::deque<int32_t> last;
    for (int frame = 0; frame < 2'000; ++frame) {
        EXPECT_EQ(window.isFull(), last.size() == 15) << frame;
        const int32_t weight = weights(random);
        window.add(weight);
        last.push_back(weight);
        if (last.size() > 15) last.pop_front();
        ASSERT_EQ(window.size(), last.size()) << frame;
        ASSERT_EQ(window.sum(), std::accumulate(last.begin(), last.end(), 0)) << frame;
        ASSERT_EQ(window.maxWeight(), *std::max_element(last.begin(), last.end())) << frame;
    }
}

}  // namespace
}  // namespace android
