// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "phr/MonitorFixture.h"

namespace android {
namespace {

class HoldBackTest : public PhrMonitorTest {
  protected:
    // The layer has the focus and one more buffer pending; a vsync and a latch have just been.
    void SetUp() override {
        start();
        monitor.setQuickTouchStatus(kLayer, true);
        state->mPendingCount = 1;
        state->mLastLatchTime = kStart;
        state->mLastJankTime = kStart;  // no additional delay unless a test wants it
    }

    void signalVsync() {
        monitor.onVsync(clock.now());
        ASSERT_TRUE(clock.waitForSleepers(1));
    }
};

TEST_F(HoldBackTest, BufferIsReleasedAtTheHeadroomPointOfItsVsync) {
    signalVsync();
    clock.advance(kMs);
    const auto call = queue();
    ASSERT_TRUE(clock.waitForSleepers(2));
    EXPECT_EQ(waiting(), 1);
    clock.advanceTo(kStart + kPeriod - kHeadroom - 1);
    EXPECT_EQ(clock.sleepers(), 2u);
    EXPECT_FALSE(hasReturned(call));
    clock.advanceTo(kStart + kPeriod - kHeadroom);
    ASSERT_TRUE(returns(call));
    EXPECT_EQ(waiting(), 0);
    EXPECT_FALSE(state->mTimedOut);
    EXPECT_FALSE(state->mReleased);
    EXPECT_EQ(state->mPendingCount, 2);
    EXPECT_EQ(state->mQueuedSinceVsync, 1);
    EXPECT_EQ(state->mLastQueueTime, kStart + kMs);
}

TEST_F(HoldBackTest, WaitEndsByItselfAndTheNextReleaseIsDropped) {
    state->mPendingCount = 0;
    clock.advance(kMs);
    const auto call = queue();  // nobody signals a vsync
    ASSERT_TRUE(clock.waitForSleepers(1));
    EXPECT_EQ(clock.nextDeadline(), kStart + kPeriod - kHeadroom);
    clock.advanceTo(kStart + kPeriod - kHeadroom);
    ASSERT_TRUE(returns(call));
    EXPECT_TRUE(state->mTimedOut);
    EXPECT_EQ(waiting(), 0);

    signalVsync();
    clock.advance(kPeriod);
    ASSERT_TRUE(becomes([&] { return !state->mTimedOut; }));
    EXPECT_FALSE(state->mReleased);

    signalVsync();
    clock.advance(kPeriod);
    ASSERT_TRUE(becomes([&] { return state->mReleased.load(); }));
    ASSERT_TRUE(returns(queue()));  // released before it was queued
    EXPECT_FALSE(state->mReleased);
}

TEST_F(HoldBackTest, ReleaseIsSkippedWhenTheBufferCameThrough) {
    signalVsync();
    ASSERT_TRUE(returns(queue(/*instant=*/true)));
    clock.advance(kPeriod);
    // The thread has served that vsync once it sleeps for another one.
    monitor.setQuickTouchStatus(kLayer, false);
    addLayer(8, kRate);
    monitor.setQuickTouchStatus(8, true);
    signalVsync();
    EXPECT_FALSE(state->mReleased);
}

TEST_F(HoldBackTest, AdditionalDelayBringsAPendingBufferToItsHeadroom) {
    state->mLastJankTime = -1;
    signalVsync();
    clock.advance(kMs);
    const auto call = queue();
    ASSERT_TRUE(clock.waitForSleepers(2));
    clock.advanceTo(kStart + kPeriod - kHeadroom);
    ASSERT_TRUE(log.waitFor("additional delay"));
    ASSERT_TRUE(clock.waitForSleepers(1));
    EXPECT_EQ(clock.nextDeadline(), kStart + 2 * kPeriod - kHeadroom);
    clock.advance(kPeriod);
    ASSERT_TRUE(returns(call));
    EXPECT_FALSE(state->mTimedOut);
    EXPECT_EQ(waiting(), 0);
}

TEST_F(HoldBackTest, EachOfTheTwoWaitsIsBoundedByAPeriod) {
    state->mLastJankTime = -1;
    state->mPendingCount = 5;
    const auto call = queue();
    for (int wait = 1; wait <= 2; ++wait) {
        ASSERT_TRUE(clock.waitForSleepers(1)) << wait;
        EXPECT_EQ(clock.nextDeadline(), kStart + wait * kPeriod);
        clock.advance(kPeriod);
    }
    ASSERT_TRUE(returns(call));
}

TEST_F(HoldBackTest, AdditionalDelayIsWithheld) {
    constexpr nsecs_t kNever = kStart + 1;
    const struct {
        const char* what;
        int32_t pending;
        nsecs_t sinceJank;
        int32_t dropWait;
        int fps;
        bool delayed;
    } cases[] = {
            {"a jank less than a second ago", 1, 999'999'999, -1, 60, false},
            {"a jank a second ago", 1, 1'000'000'000, -1, 60, true},
            {"a touch waits for the queue to drain", 1, kNever, 1, 60, false},
            {"which matters at 60 Hz alone", 1, kNever, 1, 90, true},
            {"nothing pending", 0, kNever, -1, 60, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        monitor.setVsyncInfo(kPeriod + 1, c.fps);  // an unchanged period would keep the rate
        monitor.setVsyncInfo(kPeriod, c.fps);
        state->mPendingCount = c.pending;
        state->mLastJankTime = kStart - c.sinceJank;
        state->mDropWaitCount = c.dropWait;
        const auto call = queue();
        ASSERT_TRUE(clock.waitForSleepers(1));
        state->releaseWaiters();
        if (c.delayed) {
            ASSERT_TRUE(clock.waitForSleepers(1));
            EXPECT_FALSE(hasReturned(call));
            state->releaseWaiters();
        }
        ASSERT_TRUE(returns(call));
    }
}

TEST_F(HoldBackTest, InstantBufferAndTheOneAfterItPass) {
    ASSERT_TRUE(returns(queue(/*instant=*/true)));
    EXPECT_TRUE(state->mInstant);
    ASSERT_TRUE(returns(queue()));
    const auto held = queue();
    ASSERT_TRUE(clock.waitForSleepers(1));
    clock.advance(kPeriod);
    ASSERT_TRUE(returns(held));
}

TEST_F(HoldBackTest, ReleaseJustBeforeTheWaitIsNotMissed) {
    state->mReleased = true;
    EXPECT_FALSE(state->waitUnlessReleased(kPeriod));  // nobody would end it
    EXPECT_EQ(waiting(), 0);
}

TEST_F(HoldBackTest, BufferBelowItsHeadroomPasses) {
    state->mPendingCount = 0;
    clock.advance(kPeriod - kHeadroom + 1);
    ASSERT_TRUE(returns(queue()));
    EXPECT_EQ(state->mPendingCount, 1);
    EXPECT_FALSE(state->mTimedOut);
    // One right at its headroom is held for no time, and there is nothing left to delay it for.
    state->mLastJankTime = -1;
    state->mLastLatchTime = clock.now() + kHeadroom - 2 * kPeriod;
    ASSERT_TRUE(returns(queue()));
    EXPECT_TRUE(state->mTimedOut);
    EXPECT_EQ(log.count("additional delay"), 0u);
}

TEST_F(HoldBackTest, UnblockReleasesOnceAndLeavesNoAdditionalDelay) {
    state->mLastJankTime = -1;
    state->mHasPending = true;
    const auto call = queue();
    ASSERT_TRUE(clock.waitForSleepers(1));
    monitor.unblockBuffer(kLayer);
    ASSERT_TRUE(returns(call));
    EXPECT_FALSE(state->mUnblocked);
    EXPECT_FALSE(state->mTimedOut);
    EXPECT_EQ(state->mDropWaitCount, -1);
    state->mHasPending = false;
    monitor.unblockBuffer(kLayer);
    EXPECT_EQ(state->mDropWaitCount, 1);
}

TEST_F(HoldBackTest, UnregisteringAndStoppingReleaseTheBuffer) {
    auto call = queue();
    ASSERT_TRUE(clock.waitForSleepers(1));
    monitor.unregisterLayer(kLayer);
    ASSERT_TRUE(returns(call));
    EXPECT_FALSE(state->mTimedOut);
    EXPECT_EQ(waiting(), 0);
    EXPECT_EQ(log.count("Layer 7 destroyed"), 1u);
    monitor.unregisterLayer(kLayer);
    EXPECT_EQ(log.count("destroyed"), 1u);
    // A thread that still holds the state does not wait on it any more.
    EXPECT_FALSE(state->waitForRelease(kPeriod));
    EXPECT_EQ(waiting(), 0);

    // The focus layer's thread and one of a layer that had the focus before.
    for (int id : {8, 9}) {
        const sp<LayerPHRState> other = addLayer(id, kRate);
        other->mQuickTouchActive = true;
        other->mLastLatchTime = clock.now();
    }
    auto call8 = queue(false, 8);
    auto call9 = queue(false, 9);
    ASSERT_TRUE(clock.waitForSleepers(2));
    monitor.forceStop();
    ASSERT_TRUE(returns(call8));
    ASSERT_TRUE(returns(call9));
}

TEST_F(HoldBackTest, ReplacedStateIsNotWokenButEndsInTime) {
    const auto call = queue();
    ASSERT_TRUE(clock.waitForSleepers(1));
    const sp<LayerPHRState> replacement = addLayer(kLayer, kRate);
    EXPECT_NE(replacement, state);
    monitor.unblockBuffer(kLayer);
    EXPECT_EQ(clock.sleepers(), 1u);
    clock.advance(kPeriod);
    ASSERT_TRUE(returns(call));
    EXPECT_TRUE(state->mTimedOut);
}

TEST_F(HoldBackTest, OneThreadsTimeOutLeavesTheOtherReachable) {
    state->mPendingCount = 0;
    const auto early = queue();
    ASSERT_TRUE(clock.waitForSleepers(1));
    state->mPendingCount = 1;
    const auto late = queue();
    ASSERT_TRUE(clock.waitForSleepers(2));
    EXPECT_EQ(waiting(), 2);
    clock.advance(kPeriod - kHeadroom);
    ASSERT_TRUE(returns(early));
    EXPECT_EQ(waiting(), 1);
    monitor.unblockBuffer(kLayer);
    ASSERT_TRUE(returns(late));
    EXPECT_EQ(waiting(), 0);
}

TEST_F(HoldBackTest, VsyncDuringTheWaitIsServedNext) {
    state->mHeadroom = -1;  // not known yet: just past the next vsync
    signalVsync();
    EXPECT_EQ(clock.nextDeadline(), kStart + kPeriod + 1);
    clock.advance(kPeriod);
    signalVsync();
    EXPECT_EQ(clock.nextDeadline(), kStart + kPeriod + 1);  // the signal does not cut it short
    clock.advance(1);
    ASSERT_TRUE(clock.waitForSleepers(1));
    EXPECT_EQ(clock.nextDeadline(), kStart + 2 * kPeriod + 1);
    EXPECT_TRUE(state->mReleased);
}

TEST_F(HoldBackTest, HugeHeadroomPeriodAndCountStayWithinTwoPeriods) {
    state->mPendingCount = INT32_MAX;
    const auto call = queue();
    ASSERT_TRUE(clock.waitForSleepers(1));
    EXPECT_EQ(clock.nextDeadline(), kStart + kPeriod);
    monitor.unblockBuffer(kLayer);
    ASSERT_TRUE(returns(call));

    monitor.setVsyncInfo(INT64_MAX, 60);
    ASSERT_TRUE(returns(queue(/*instant=*/true)));
    state->mHeadroom = INT64_MAX;
    signalVsync();
    EXPECT_EQ(clock.nextDeadline(), INT32_MAX * nsecs_t{1'000'000'000});
    monitor.forceStop();
}

TEST_F(HoldBackTest, WithoutAPeriodNothingHappens) {
    monitor.setVsyncInfo(0, 60);
    const nsecs_t headroom = state->mHeadroom;
    ASSERT_TRUE(returns(queue()));
    monitor.updateHeadRoom(kLayer, 0.5f, 0.5f);
    monitor.updatePresetHeadroom(state.get(), false, kMs);
    monitor.updateDynamicHeadroom(state.get(), kPeriod);
    monitor.updateMaxHeadroom(state.get());
    monitor.onBufferDecrement(kLayer, 3, clock.now() + kMs);
    EXPECT_EQ(state->mHeadroom, headroom);
    EXPECT_EQ(state->mPendingCount, 1);
    EXPECT_EQ(state->mLastLatchTime, kStart);
    monitor.onVsync(clock.now());
    monitor.setVsyncInfo(kPeriod, 60);
    EXPECT_EQ(state->mHeadroom, kPeriod / 2);  // the rates were kept for when it is known
}

}  // namespace
}  // namespace android
