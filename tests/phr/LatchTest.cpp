// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "phr/MonitorFixture.h"

namespace android {
namespace {

class LatchTest : public PhrMonitorTest {
  protected:
    void SetUp() override {
        start();
        state->mLastLatchTime = kStart;
    }

    // Each latch `periods` after the latch before.
    void latch(double periods, int pending = 1, int count = 1) {
        for (int i = 0; i < count; ++i) {
            monitor.onBufferDecrement(kLayer, pending,
                                      state->mLastLatchTime +
                                              static_cast<nsecs_t>(kPeriod * periods));
        }
    }
};

TEST_F(LatchTest, SixthJankInFifteenSecondsSwitchesQuickTouchOff) {
    for (double onTime : {0.0, 1.0, 1.49, -5.0}) {
        latch(onTime);
        EXPECT_EQ(state->mLastJankTime, -1) << onTime;
    }
    monitor.setQuickTouchStatus(kLayer, true);
    // The sixth comes fifteen seconds after the first: the oldest are forgotten, one by one.
    latch(3'000'000'000.0 / kPeriod, 1, 20);
    EXPECT_TRUE(state->mQuickTouchActive);
    latch(3'000'000'000.0 / kPeriod - 0.001);
    EXPECT_FALSE(state->mQuickTouchActive);
    EXPECT_EQ(log.count("Disable QuickTouch due to jank"), 1u);
    EXPECT_EQ(log.count("Layer 7: disable PHR"), 1u);
    // The count begins anew.
    monitor.setQuickTouchStatus(kLayer, true);
    latch(1.5, 1, 5);
    EXPECT_EQ(state->mLastJankTime, state->mLastLatchTime);
    EXPECT_TRUE(state->mQuickTouchActive);
    for (nsecs_t time : {INT64_MIN, INT64_MAX}) monitor.onBufferDecrement(kLayer, 1, time);
}

TEST_F(LatchTest, ThirtyOneBusyLatchesSwitchQuickTouchOn) {
    latch(1, 1, 30);
    EXPECT_FALSE(monitor.isQuickTouchApplicable(state.get()));
    latch(1, 0);  // an empty queue interrupts the row
    latch(1, 2, 30);
    EXPECT_FALSE(state->mQuickTouchActive);
    EXPECT_EQ(state->mPendingCount, 0);
    latch(1, 2);
    EXPECT_TRUE(state->mQuickTouchActive);
    EXPECT_EQ(state->mPendingCount, 2);
    EXPECT_TRUE(state->mHasPending);
    latch(1, 0);
    EXPECT_FALSE(state->mHasPending);

    state = addLayer(kLayer, 0);  // without a rate it stays off
    latch(1, 1, 40);
    EXPECT_FALSE(state->mQuickTouchActive);
}

TEST_F(LatchTest, DropWaitEndsWithTheQueueOrAfterThirtyLatches) {
    monitor.setQuickTouchStatus(kLayer, true);
    latch(1);
    EXPECT_EQ(state->mDropWaitCount, -1);
    state->mDropWaitCount = 1;
    latch(1, 1, 29);
    EXPECT_EQ(state->mDropWaitCount, 30);
    latch(1);
    EXPECT_EQ(state->mDropWaitCount, -1);
    state->mDropWaitCount = 1;
    latch(1, 0);
    EXPECT_EQ(state->mDropWaitCount, -1);
    // At other rates nothing is counted.
    state->mDropWaitCount = 1;
    monitor.setVsyncInfo(kPeriod / 2, 120);
    latch(0.5);
    EXPECT_EQ(state->mDropWaitCount, 1);
}

TEST_F(LatchTest, OnlyAFocusLayerThatIsNotPacedCounts) {
    const sp<LayerPHRState> other = addLayer(8, kRate);
    monitor.setQuickTouchStatus(8, true);
    latch(5);
    EXPECT_EQ(state->mLastLatchTime, kStart);
    monitor.setQuickTouchStatus(kLayer, true);
    EXPECT_FALSE(state->mQuickTouchActive);
    monitor.unregisterLayer(8);  // gives the focus back
    latch(5);
    EXPECT_EQ(state->mLastJankTime, kStart + 5 * kPeriod);
    monitor.setQuickTouchStatus(kLayer, true);
    EXPECT_TRUE(state->mQuickTouchActive);
    state->mTargetFpsActive = true;
    latch(5);
    EXPECT_EQ(state->mLastLatchTime, kStart + 5 * kPeriod);
}

}  // namespace
}  // namespace android
