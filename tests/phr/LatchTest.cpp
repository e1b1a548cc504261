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

    // Latches `periods` after the latch before.
    void latchAfter(double periods, int pending = 1) {
        monitor.onBufferDecrement(kLayer, pending,
                                  state->mLastLatchTime + static_cast<nsecs_t>(kPeriod * periods));
    }
};

TEST_F(LatchTest, SixthJankInFifteenSecondsSwitchesQuickTouchOff) {
    monitor.setQuickTouchStatus(kLayer, true);
    for (int jank = 1; jank <= 5; ++jank) {
        latchAfter(100);
        EXPECT_TRUE(state->mQuickTouchActive) << jank;
        EXPECT_EQ(state->mLastJankTime, state->mLastLatchTime) << jank;
    }
    latchAfter(100);
    EXPECT_FALSE(state->mQuickTouchActive);
    EXPECT_EQ(log.count("Disable QuickTouch due to jank"), 1u);
    EXPECT_EQ(log.count("Layer 7: disable PHR"), 1u);
    // The count begins anew.
    monitor.setQuickTouchStatus(kLayer, true);
    for (int jank = 1; jank <= 5; ++jank) latchAfter(2);
    EXPECT_TRUE(state->mQuickTouchActive);
}

TEST_F(LatchTest, SixthJankLaterKeepsQuickTouchOn) {
    monitor.setQuickTouchStatus(kLayer, true);
    for (int jank = 1; jank <= 20; ++jank) latchAfter(3'000'000'000.0 / kPeriod);
    EXPECT_TRUE(state->mQuickTouchActive);
}

TEST_F(LatchTest, JankIsALatchTwoPeriodsAfterTheLast) {
    for (double periods : {0.0, 1.0, 1.49, -5.0}) {
        latchAfter(periods);
        EXPECT_EQ(state->mLastJankTime, -1) << periods;
    }
    latchAfter(1.5);
    EXPECT_EQ(state->mLastJankTime, state->mLastLatchTime);
}

TEST_F(LatchTest, ThirtyOneBusyLatchesSwitchQuickTouchOn) {
    for (int latch = 1; latch <= 30; ++latch) latchAfter(1);
    EXPECT_FALSE(monitor.isQuickTouchApplicable(state.get()));
    latchAfter(1, 0);  // an empty queue interrupts the row
    for (int latch = 1; latch <= 30; ++latch) latchAfter(1, 2);
    EXPECT_FALSE(state->mQuickTouchActive);
    EXPECT_EQ(state->mPendingCount, 0);
    latchAfter(1, 2);
    EXPECT_TRUE(state->mQuickTouchActive);
    EXPECT_EQ(state->mPendingCount, 2);
    EXPECT_TRUE(state->mHasPending);
    latchAfter(1, 0);
    EXPECT_FALSE(state->mHasPending);
}

TEST_F(LatchTest, LayerWithoutARateStaysOff) {
    state = addLayer(kLayer, 0);
    state->mLastLatchTime = kStart;
    for (int latch = 1; latch <= 40; ++latch) latchAfter(1);
    EXPECT_FALSE(state->mQuickTouchActive);
    EXPECT_FALSE(monitor.isQuickTouchApplicable(state.get()));
}

TEST_F(LatchTest, DropWaitEndsWithTheQueueOrAfterThirtyLatches) {
    monitor.setQuickTouchStatus(kLayer, true);
    latchAfter(1);
    EXPECT_EQ(state->mDropWaitCount, -1);
    state->mDropWaitCount = 1;
    for (int latch = 1; latch <= 29; ++latch) latchAfter(1);
    EXPECT_EQ(state->mDropWaitCount, 30);
    latchAfter(1);
    EXPECT_EQ(state->mDropWaitCount, -1);
    state->mDropWaitCount = 1;
    latchAfter(1, 0);
    EXPECT_EQ(state->mDropWaitCount, -1);
    // At other rates nothing is counted.
    state->mDropWaitCount = 1;
    monitor.setVsyncInfo(kPeriod / 2, 120);
    latchAfter(0.5);
    EXPECT_EQ(state->mDropWaitCount, 1);
}

TEST_F(LatchTest, OnlyTheFocusLayerCounts) {
    const sp<LayerPHRState> other = addLayer(8, kRate);
    monitor.setQuickTouchStatus(8, true);
    latchAfter(5);
    EXPECT_EQ(state->mLastLatchTime, kStart);
    monitor.setQuickTouchStatus(kLayer, true);
    EXPECT_FALSE(state->mQuickTouchActive);
    monitor.unregisterLayer(8);  // gives the focus back
    latchAfter(5);
    EXPECT_EQ(state->mLastJankTime, kStart + 5 * kPeriod);
    monitor.setQuickTouchStatus(kLayer, true);
    EXPECT_TRUE(state->mQuickTouchActive);
}

TEST_F(LatchTest, PacedLayerIsLeftAlone) {
    state->mTargetFpsActive = true;
    latchAfter(5);
    EXPECT_EQ(state->mBusyLatchCount, 0);
    EXPECT_EQ(state->mLastLatchTime, kStart);
}

}  // namespace
}  // namespace android
