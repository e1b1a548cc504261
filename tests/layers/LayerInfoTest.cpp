// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <algorithm>

#include "layers/LayerInfo.h"

namespace android {
namespace {

using Tracker = LayerInfo::StableFpsTracker;

constexpr nsecs_t k60Hz = 16'666'667;
constexpr nsecs_t k30Hz = 33'333'333;
constexpr float kTolerance = 0.2f;

TEST(StableFpsTrackerTest, KeepsTheSumOfTheRing) {
    Tracker tracker;
    tracker.push(5);  // no slots yet
    EXPECT_EQ(tracker.sum, 0);

    tracker.resize(3);
    for (const nsecs_t interval : {10, 20, 30, 40}) {
        EXPECT_EQ(tracker.full, interval > 30);
        tracker.push(interval);
    }
    EXPECT_EQ(tracker.sum, 90) << "the oldest has left";
    EXPECT_EQ(tracker.index, 1u);

    tracker.reset();
    EXPECT_EQ(tracker.sum, 0);
    EXPECT_FALSE(tracker.full);
    EXPECT_EQ(tracker.samples, (std::vector<nsecs_t>{0, 0, 0}));

    tracker.resize(-1);
    EXPECT_TRUE(tracker.samples.empty());
}

// A full ring that alternates between mean - spread and mean + spread.
Tracker alternating(nsecs_t mean, nsecs_t spread) {
    Tracker tracker;
    tracker.resize(30);
    for (int i = 0; i < 30; ++i) tracker.push(i % 2 == 0 ? mean - spread : mean + spread);
    return tracker;
}

TEST(StableFpsTrackerTest, JudgesTheDeviation) {
    EXPECT_TRUE(alternating(k60Hz, 1'000'000).isStable(1, kTolerance));
    EXPECT_TRUE(alternating(k60Hz, 3'300'000).isStable(1, kTolerance)) << "just below a fifth";
    EXPECT_FALSE(alternating(k60Hz, 3'400'000).isStable(1, kTolerance));
    EXPECT_TRUE(alternating(5'000'000, 1'900'000).isStable(1, kTolerance)) << "the floor";
    EXPECT_FALSE(alternating(5'000'000, 2'100'000).isStable(1, kTolerance));

    Tracker partial;
    partial.resize(30);
    for (int i = 0; i < 29; ++i) partial.push(k60Hz);
    EXPECT_FALSE(partial.isStable(1, kTolerance)) << "one interval short";
    EXPECT_EQ(partial.getFpsMode(), -1);
    partial.push(k60Hz);
    EXPECT_TRUE(partial.isStable(1, kTolerance));
    EXPECT_EQ(partial.getFpsMode(), 60);

    EXPECT_EQ(alternating(0, 0).getFpsMode(), -1) << "no mean to divide by";
    EXPECT_FALSE(Tracker().isStable(1, kTolerance));
}

class UpdateFpsTest : public ::testing::Test {
  protected:
    bool queueAfter(nsecs_t interval) {
        mLayer.mLastQueueTime += interval;
        return mLayer.updateFps();
    }
    // Queues until a window closes and returns how many buffers that took.
    int queueUntilWindowCloses(nsecs_t interval) {
        int buffers = 1;
        while (!queueAfter(interval)) ++buffers;
        return buffers;
    }

    LayerInfo mLayer;
};

TEST_F(UpdateFpsTest, AcceptsASteadyMode) {
    EXPECT_FALSE(queueAfter(1'000'000'000)) << "the first buffer has no interval";
    EXPECT_EQ(queueUntilWindowCloses(k60Hz), 60);
    EXPECT_NEAR(mLayer.mFps, 60.0f, 0.01f);
    EXPECT_EQ(mLayer.mFpsMode, 60);
    EXPECT_EQ(mLayer.mLastFpsTime, mLayer.mLastQueueTime);
    // The next window begins at the buffer that closed this one.
    EXPECT_EQ(queueUntilWindowCloses(k60Hz), 60);
}

TEST_F(UpdateFpsTest, ModeWaitsForAFullRing) {
    queueAfter(1'000'000'000);
    EXPECT_EQ(queueUntilWindowCloses(100'000'000), 11);
    EXPECT_NEAR(mLayer.mFps, 10.0f, 0.01f);
    EXPECT_EQ(mLayer.mFpsMode, -1);
    queueUntilWindowCloses(100'000'000);
    EXPECT_EQ(mLayer.mFpsMode, -1);
    queueUntilWindowCloses(100'000'000);
    EXPECT_EQ(mLayer.mFpsMode, 10);
}

TEST_F(UpdateFpsTest, TheRingMustConfirmTheMode) {
    queueAfter(1'000'000'000);
    for (int i = 0; i < 15; ++i) queueAfter(k30Hz);
    queueUntilWindowCloses(k60Hz);
    EXPECT_NEAR(mLayer.mFps, 45.0f, 1.0f) << "of a layer that now draws evenly at 60";
    EXPECT_EQ(mLayer.mFpsMode, -1);
}

TEST_F(UpdateFpsTest, APauseDoesNotChangeTheMode) {
    queueAfter(1'000'000'000);
    queueUntilWindowCloses(k60Hz);
    ASSERT_EQ(mLayer.mFpsMode, 60);
    for (int i = 0; i < 10; ++i) EXPECT_FALSE(queueAfter(k60Hz));
    EXPECT_TRUE(queueAfter(3'000'000'000));
    EXPECT_LT(mLayer.mFps, 4.0f);
    EXPECT_EQ(mLayer.mFpsMode, 60);
}

TEST_F(UpdateFpsTest, ANewSteadyRateReplacesTheMode) {
    queueAfter(1'000'000'000);
    queueUntilWindowCloses(k60Hz);
    queueUntilWindowCloses(k30Hz);
    EXPECT_EQ(mLayer.mFpsMode, 30) << "31 intervals of 33 ms have filled the ring";
}

TEST_F(UpdateFpsTest, ReversedTimesOpenNoWindow) {
    queueAfter(1'000'000'000);
    EXPECT_FALSE(queueAfter(-5));
    EXPECT_FALSE(queueAfter(0));
    EXPECT_FALSE(mLayer.mFpsWindowStarted);
    EXPECT_FALSE(queueAfter(k60Hz));
    EXPECT_TRUE(mLayer.mFpsWindowStarted);
    EXPECT_EQ(mLayer.mFpsWindowStart, mLayer.mLastQueueTime - k60Hz);
}

}  // namespace
}  // namespace android
