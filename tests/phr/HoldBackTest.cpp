// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <android/log.h>

#include <algorithm>
#include <functional>
#include <random>
#include <string>

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

    // Queues a buffer and returns once `threads` wait, this one and those that did before.
    std::future<void> hold(size_t threads = 1, int id = kLayer) {
        auto call = queue(/*instant=*/false, id);
        EXPECT_TRUE(clock.waitForSleepers(threads));
        return call;
    }
};

TEST_F(HoldBackTest, BufferIsReleasedAtTheHeadroomPointOfItsVsync) {
    signalVsync();
    clock.advance(kMs);
    const auto call = hold(2);
    EXPECT_EQ(waiting(), 1);
    clock.advanceTo(kStart + kPeriod - kHeadroom - 1);
    EXPECT_EQ(clock.sleepers(), 2u);
    EXPECT_FALSE(hasReturned(call));
    clock.advance(1);
    ASSERT_TRUE(returns(call));
    EXPECT_EQ(waiting(), 0);
    EXPECT_FALSE(state->mTimedOut);
    EXPECT_FALSE(state->mReleased);
    EXPECT_EQ(state->mPendingCount, 2);
    EXPECT_EQ(state->mQueuedSinceVsync, 1);
    EXPECT_EQ(state->mLastQueueTime, kStart + kMs);

    // The release is skipped when the buffer came through. The thread has served that vsync once
    // it sleeps for another one.
    signalVsync();
    ASSERT_TRUE(returns(queue(/*instant=*/true)));
    clock.advance(kPeriod);
    monitor.setQuickTouchStatus(kLayer, false);
    addLayer(8, kRate);
    monitor.setQuickTouchStatus(8, true);
    signalVsync();
    EXPECT_FALSE(state->mReleased);
}

TEST_F(HoldBackTest, WaitEndsByItselfAndTheNextReleaseIsDropped) {
    state->mPendingCount = 0;
    clock.advance(kMs);
    const auto call = hold();  // nobody signals a vsync
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
    // Just before the wait is not too late: nobody would end it.
    state->mReleased = true;
    EXPECT_FALSE(state->waitUnlessReleased(kPeriod));
}

// Against the definition of both waits, while the display switches its period during the first.
TEST_F(HoldBackTest, EachWaitFollowsThePeriodOfItsMoment) {
    constexpr nsecs_t kPeriods[] = {kPeriod, kPeriod / 2, kPeriod / 4 * 3, 7 * kMs + 1};
    state->mLastJankTime = -1;
    std::minstd_rand random(1);
    const auto below = [&random](nsecs_t limit) { return static_cast<nsecs_t>(random()) % limit; };
    for (int round = 0; round < 100; ++round) {
        SCOPED_TRACE(round);
        nsecs_t period = kPeriods[below(4)];
        monitor.setVsyncInfo(period, 90);
        const nsecs_t headroom = state->mHeadroom;
        const nsecs_t latch = clock.now() - below(2 * period);
        state->mLastLatchTime = latch;
        nsecs_t pending = round % 8 == 0 ? INT32_MAX : below(4);
        state->mPendingCount = static_cast<int32_t>(pending);
        nsecs_t left = latch - clock.now() + period * (pending + 1) - headroom;
        // Without the headroom's own steps, which the frame times would bring about.
        const auto call = std::async(std::launch::async, [this, now = clock.now()] {
            monitor.trackQueueBuffer(state.get(), /*instant=*/false, now);
        });
        if (left <= 0) {
            ASSERT_TRUE(returns(call));
            continue;
        }
        ASSERT_TRUE(clock.waitForSleepers(1));
        EXPECT_EQ(clock.nextDeadline(), clock.now() + std::min(left, period));
        clock.advance(below(std::min(left, period)));
        period = kPeriods[below(4)];
        monitor.setVsyncInfo(period, 90);
        pending = below(4);
        state->mPendingCount = static_cast<int32_t>(pending);
        state->releaseWaiters();
        left = latch - clock.now() + period * (pending + 1) - headroom;
        if (left > 0 && pending > 0) {
            ASSERT_TRUE(clock.waitForSleepers(1));
            EXPECT_EQ(clock.nextDeadline(), clock.now() + std::min(left, period));
            state->releaseWaiters();
        }
        ASSERT_TRUE(returns(call));
    }
}

TEST_F(HoldBackTest, AdditionalDelayIsWithheld) {
    constexpr nsecs_t kNever = kStart + 1;
    const struct {
        const char* what;
        nsecs_t sinceJank;
        int32_t dropWait;
        int fps;
        bool delayed;
    } cases[] = {
            {"a jank less than a second ago", 999'999'999, -1, 60, false},
            {"a jank a second ago", 1'000'000'000, -1, 60, true},
            {"a touch waits for the queue to drain", kNever, 1, 60, false},
            {"which matters at 60 Hz alone", kNever, 1, 90, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        monitor.setVsyncInfo(kPeriod + 1, c.fps);  // an unchanged period would keep the rate
        monitor.setVsyncInfo(kPeriod, c.fps);
        state->mPendingCount = 1;
        state->mLastJankTime = kStart - c.sinceJank;
        state->mDropWaitCount = c.dropWait;
        const auto call = hold();
        state->releaseWaiters();
        if (c.delayed) {
            ASSERT_TRUE(clock.waitForSleepers(1));
            EXPECT_FALSE(hasReturned(call));
            state->releaseWaiters();
        }
        ASSERT_TRUE(returns(call));
    }
}

TEST_F(HoldBackTest, InstantBuffersAndThoseBelowTheirHeadroomPass) {
    ASSERT_TRUE(returns(queue(/*instant=*/true)));
    ASSERT_TRUE(returns(queue()));  // the one after it passes too
    const auto held = hold();
    clock.advance(kPeriod);
    ASSERT_TRUE(returns(held));

    state->mTimedOut = false;
    state->mPendingCount = 0;
    state->mLastLatchTime = clock.now() + kHeadroom - kPeriod - 1;
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

// What happens on the queuing thread between the decision for the additional delay and its wait,
// which is when it logs.
std::function<void()> sOnceDecided;

void actOnceDecided(const __android_logger_data*, const char* message) {
    if (message == std::string("additional delay")) sOnceDecided();
}

TEST_F(HoldBackTest, UnblockOrReleaseEndsTheAdditionalDelayWheneverItComes) {
    state->mLastJankTime = -1;
    state->mHasPending = true;
    __android_log_set_logger(actOnceDecided);
    enum Moment { QUEUED, HELD, DECIDED, DELAYED };
    const struct {
        const char* what;
        bool unblocks;  // or releases
        Moment when;
        bool delayed;
    } cases[] = {
            {"an unblock before the buffer is queued", true, QUEUED, false},
            {"an unblock while it is held", true, HELD, false},
            {"an unblock as its delay is decided", true, DECIDED, false},
            {"an unblock in its delay", true, DELAYED, true},
            {"a release before it is queued", false, QUEUED, true},
            {"a release as its delay is decided", false, DECIDED, false},
            {"a release in its delay", false, DELAYED, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const auto actAt = [&](Moment now) {
            if (c.when != now) return;
            if (c.unblocks) monitor.unblockBuffer(kLayer);
            if (!c.unblocks) state->releaseWaiters();
        };
        sOnceDecided = [&] { actAt(DECIDED); };
        state->mPendingCount = 1;
        actAt(QUEUED);
        const auto call = hold();
        actAt(HELD);
        state->releaseWaiters();
        if (c.delayed) {
            ASSERT_TRUE(clock.waitForSleepers(1));
            actAt(DELAYED);
            state->releaseWaiters();
        }
        EXPECT_TRUE(returns(call));
        clock.advance(hasReturned(call) ? 0 : kPeriod);
        // One that came in the delay counts for the next buffer too.
        EXPECT_EQ(state->mUnblocked.exchange(false), c.unblocks && c.delayed);
        EXPECT_FALSE(state->mTimedOut);
    }
    EXPECT_EQ(state->mDropWaitCount, -1);
    state->mHasPending = false;
    monitor.unblockBuffer(kLayer);
    EXPECT_EQ(state->mDropWaitCount, 1);
}

TEST_F(HoldBackTest, UnregisteringAndStoppingReleaseTheBuffer) {
    const auto call = hold();
    monitor.unregisterLayer(kLayer);
    ASSERT_TRUE(returns(call));
    EXPECT_FALSE(state->mTimedOut);
    monitor.unregisterLayer(kLayer);
    EXPECT_EQ(log.count("Layer 7 destroyed"), 1u);
    // A thread that still holds the state does not wait on it any more.
    EXPECT_FALSE(state->waitUnlessReleased(kPeriod));
    EXPECT_EQ(waiting(), 0);

    // The focus layer's thread and one of a layer that had the focus before.
    for (int id : {8, 9}) {
        const sp<LayerPHRState> other = addLayer(id, kRate);
        other->mQuickTouchActive = true;
        other->mLastLatchTime = clock.now();
    }
    const auto call8 = hold(1, 8);
    const auto call9 = hold(2, 9);
    monitor.forceStop();
    ASSERT_TRUE(returns(call8));
    ASSERT_TRUE(returns(call9));
}

TEST_F(HoldBackTest, ReplacedStateIsNotWokenButEndsInTime) {
    const auto call = hold();
    const sp<LayerPHRState> replacement = addLayer(kLayer, kRate);
    EXPECT_NE(replacement, state);
    monitor.unblockBuffer(kLayer);
    EXPECT_EQ(clock.sleepers(), 1u);
    clock.advance(kPeriod);
    ASSERT_TRUE(returns(call));
    EXPECT_TRUE(state->mTimedOut);
}

TEST_F(HoldBackTest, OneThreadsTimeOutLeavesTheOthersReachable) {
    state->mPendingCount = 0;
    const auto early = hold();
    state->mPendingCount = 1;
    const auto late = hold(2);
    const auto another = hold(3);
    clock.advance(kPeriod - kHeadroom);
    ASSERT_TRUE(returns(early));
    EXPECT_EQ(waiting(), 2);
    EXPECT_TRUE(state->releaseWaiters());
    ASSERT_TRUE(returns(late));
    ASSERT_TRUE(returns(another));
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

TEST_F(HoldBackTest, WithoutAPeriodNothingHappens) {
    monitor.setVsyncInfo(0, 60);
    const nsecs_t headroom = state->mHeadroom;
    ASSERT_TRUE(returns(queue()));
    monitor.updateHeadRoom(kLayer, 0.5f, 0.5f);
    monitor.checkAndUpdateHeadroom(state.get(), 2 * kPeriod);
    monitor.updateDynamicHeadroom(state.get(), kPeriod);
    monitor.onBufferDecrement(kLayer, 3, clock.now() + kMs);
    EXPECT_EQ(state->mHeadroom, headroom);
    EXPECT_EQ(state->mPendingCount, 1);
    EXPECT_EQ(state->mLastLatchTime, kStart);
    monitor.onVsync(clock.now());
    monitor.setVsyncInfo(kPeriod, 60);
    EXPECT_EQ(state->mHeadroom, kPeriod / 2);  // the rates were kept for when it is known
}

TEST_F(HoldBackTest, BearsAHugePeriod) {
    monitor.setVsyncInfo(INT64_MAX, 60);
    ASSERT_TRUE(returns(queue(/*instant=*/true)));
    state->mHeadroom = INT64_MAX;
    signalVsync();
    EXPECT_EQ(clock.nextDeadline(), INT32_MAX * nsecs_t{1'000'000'000});
    monitor.forceStop();
}

}  // namespace
}  // namespace android
