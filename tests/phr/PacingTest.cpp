// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "phr/MonitorFixture.h"

namespace android {
namespace {

class PacingTest : public PhrMonitorTest {
  protected:
    void startWithRamp(const char* frames) {
        base::SetProperty("vendor.rdxe.enable.target_fps", "true");
        base::SetProperty("vendor.rdxe.target_fps.switch_time", frames);
        start();
    }

    // Queues a buffer and lets the clock run to the time it is held to; returns that delay.
    nsecs_t delayOfNext() {
        const nsecs_t before = clock.now();
        const auto call = queue();
        if (!becomes([&] { return hasReturned(call) || clock.sleepers() == 1; })) return -1;
        if (!hasReturned(call)) clock.advanceTo(clock.nextDeadline());
        EXPECT_TRUE(returns(call));
        EXPECT_EQ(state->mLastPaceTime, clock.now());
        return clock.now() - before;
    }
};

TEST_F(PacingTest, FirstFrameNeverSleepsAndTheOthersKeepTheRate) {
    startWithRamp("0");
    monitor.setTargetFpsStatus(kLayer, true, 60, 50);
    EXPECT_FALSE(monitor.isTargetFpsSwitching(kLayer));
    EXPECT_EQ(delayOfNext(), 0);
    clock.advance(15 * kMs);
    EXPECT_EQ(delayOfNext(), 5 * kMs);
    clock.advance(32 * kMs);  // late, and made up for
    EXPECT_EQ(delayOfNext(), 0);
    clock.advance(3 * kMs);
    EXPECT_EQ(delayOfNext(), 5 * kMs);
    // The same target again changes nothing, not even the clock; another one starts anew.
    monitor.setTargetFpsStatus(kLayer, true, 55, 50);
    EXPECT_EQ(delayOfNext(), 20 * kMs);
    monitor.setTargetFpsStatus(kLayer, true, 55, 40);
    EXPECT_EQ(delayOfNext(), 0);
    EXPECT_EQ(delayOfNext(), 25 * kMs);
    monitor.resetTargetFpsClock(state.get());
    EXPECT_EQ(delayOfNext(), 0);
    monitor.setTargetFpsStatus(kLayer, false, 55, 40);
    EXPECT_FALSE(state->mTargetFpsActive);
    EXPECT_EQ(log.count("Layer 7: enable target fps: 50.000000"), 1u);
    EXPECT_EQ(log.count("enable target fps: "), 2u);
    EXPECT_EQ(log.count("Layer 7: disable target fps"), 1u);

    // A sleep of a second or more is refused.
    monitor.setTargetFpsStatus(kLayer, true, 60, 0.5f);
    EXPECT_EQ(delayOfNext(), 0);
    EXPECT_EQ(delayOfNext(), 0);  // due in two seconds
    clock.advance(3'500 * kMs);
    EXPECT_EQ(delayOfNext(), 500 * kMs);  // due in four
    // Only the low 32 bits of a delay count.
    monitor.setTargetFpsStatus(kLayer, true, 60, 0.2f);
    EXPECT_EQ(delayOfNext(), 0);
    EXPECT_EQ(delayOfNext(), 5'000 * kMs - (nsecs_t{1} << 32));
}

TEST_F(PacingTest, RampLastsAsManyFramesAsConfigured) {
    startWithRamp("5");
    ASSERT_TRUE(returns(queue()));  // the frame that the ramp follows
    monitor.setTargetFpsStatus(kLayer, true, 60, 40);
    for (int frame = 1; frame <= 5; ++frame) {
        EXPECT_TRUE(monitor.isTargetFpsSwitching(kLayer)) << frame;
        EXPECT_EQ(delayOfNext(), static_cast<nsecs_t>(1e9f / (60 - 4 * frame))) << frame;
    }
    EXPECT_FALSE(monitor.isTargetFpsSwitching(kLayer));
    // A new ramp follows the end of the last frame's delay, not its arrival.
    monitor.setTargetFpsStatus(kLayer, true, 60, 10);
    EXPECT_EQ(delayOfNext(), 20 * kMs);
}

TEST_F(PacingTest, LateFramesAreNotMadeUpForWithoutCompensation) {
    base::SetProperty("vendor.rdxe.target_fps.compensate", "false");
    startWithRamp("0");
    monitor.setTargetFpsStatus(kLayer, true, 60, 50);
    EXPECT_EQ(delayOfNext(), 0);
    clock.advance(32 * kMs);
    EXPECT_EQ(delayOfNext(), 0);
    EXPECT_EQ(delayOfNext(), 20 * kMs);
}

}  // namespace
}  // namespace android
