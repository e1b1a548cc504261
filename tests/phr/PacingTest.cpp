// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "phr/FramePacer.h"
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
    clock.advance(21 * kMs);
    EXPECT_EQ(delayOfNext(), 0);  // a millisecond late is not late yet
    EXPECT_EQ(delayOfNext(), 19 * kMs);
    clock.advance(21 * kMs + 1);
    EXPECT_EQ(delayOfNext(), 0);
    EXPECT_EQ(delayOfNext(), 20 * kMs);
}

// A layer whose thread sleeps exactly as told.
struct Layer {
    FramePacer pacer;
    nsecs_t lastPaceTime = -1;

    FramePacer::Decision queueAt(nsecs_t time) {
        const auto decision = pacer.schedule(time, lastPaceTime, time, /*compensate=*/true);
        lastPaceTime = time + std::max<nsecs_t>(decision.sleepNs, 0);
        return decision;
    }
};

TEST(FramePacerTest, RampTakesOneStepPerFrameAndHandsOverToTheSchedule) {
    Layer layer;
    layer.pacer.start(60, 40, 4, kStart);
    nsecs_t due = kStart;
    for (float fps : {55.0f, 50.0f, 45.0f, 40.0f}) {
        due += static_cast<nsecs_t>(1e9f / fps);
        const auto decision = layer.queueAt(due - 3 * kMs);
        EXPECT_EQ(decision.sleepNs, 3 * kMs) << fps;
        EXPECT_EQ(decision.event == FramePacer::Event::RampFinished, fps == 40.0f) << fps;
    }
    // No frame without delay in between: the clock starts at the ramp's end.
    EXPECT_EQ(layer.queueAt(due + 5 * kMs).sleepNs, 20 * kMs);

    layer.pacer.start(30, 60, 2, kStart);
    EXPECT_EQ(layer.queueAt(kStart).event, FramePacer::Event::None);
    EXPECT_EQ(layer.queueAt(kStart).event, FramePacer::Event::RampFinished);
    EXPECT_EQ(layer.pacer.interval(), 16'666'667);
}

TEST(FramePacerTest, HostileRatesNeitherOverflowNorRampForEver) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    const float kNaN = std::nanf("");
    const std::pair<float, float> rates[] = {
            {60, 60},          // nothing to step
            {60.000004f, 60},  // a step lost in rounding
            {0, 60},          {-30, 60},       {60, -60},  {60, 0},    {60, 1e-30f},
            {kInfinity, 60},  {60, kInfinity}, {kNaN, 60}, {60, kNaN},
    };
    for (const auto& [current, target] : rates) {
        for (int rampFrames : {0, 10}) {
            Layer layer;
            layer.pacer.start(current, target, rampFrames, kStart);
            for (int frame = 0; frame < 40; ++frame) layer.queueAt(kStart + frame * 16 * kMs);
            EXPECT_FALSE(layer.pacer.isSwitching()) << current << " to " << target;
        }
    }
}

}  // namespace
}  // namespace android
