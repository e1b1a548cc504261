// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "phr/FramePacer.h"

namespace android {
namespace {

constexpr nsecs_t kMs = 1'000'000;
constexpr nsecs_t kStart = 1'000 * kMs;
using Event = FramePacer::Event;

// A layer whose thread sleeps exactly as told.
struct Layer {
    FramePacer pacer;
    bool compensate = true;
    nsecs_t lastPaceTime = -1;

    FramePacer::Decision queueAt(nsecs_t time) {
        const auto decision = pacer.schedule(time, lastPaceTime, time, compensate);
        lastPaceTime = time + std::max<nsecs_t>(decision.sleepNs, 0);
        return decision;
    }
};

TEST(FramePacerTest, FirstFrameOnlyStartsTheClock) {
    Layer layer;
    layer.pacer.start(60, 50, 0, kStart);
    EXPECT_EQ(layer.pacer.interval(), 20 * kMs);
    EXPECT_FALSE(layer.pacer.isSwitching());
    const auto first = layer.queueAt(kStart);
    EXPECT_EQ(first.event, Event::ClockStarted);
    EXPECT_LT(first.sleepNs, 1);
    const auto second = layer.queueAt(kStart + 16 * kMs);
    EXPECT_EQ(second.event, Event::None);
    EXPECT_EQ(second.sleepNs, 4 * kMs);
}

TEST(FramePacerTest, CompensationCatchesUpWithTheSchedule) {
    Layer layer;
    layer.pacer.start(60, 50, 0, kStart);
    layer.queueAt(kStart);
    EXPECT_EQ(layer.queueAt(kStart + 35 * kMs).sleepNs, -15 * kMs);  // was due at 20
    EXPECT_EQ(layer.queueAt(kStart + 38 * kMs).sleepNs, 2 * kMs);    // due at 40
    EXPECT_EQ(layer.queueAt(kStart + 45 * kMs).sleepNs, 15 * kMs);   // due at 60
}

TEST(FramePacerTest, WithoutCompensationALateFrameRestartsTheClock) {
    Layer layer;
    layer.compensate = false;
    layer.pacer.start(60, 50, 0, kStart);
    layer.queueAt(kStart);
    // One millisecond late is not late yet.
    EXPECT_EQ(layer.queueAt(kStart + 21 * kMs).event, Event::None);
    const auto late = layer.queueAt(kStart + 42 * kMs + 1);
    EXPECT_EQ(late.event, Event::ClockStarted);
    EXPECT_LT(late.sleepNs, 1);
    EXPECT_EQ(layer.queueAt(kStart + 50 * kMs).sleepNs, 12 * kMs + 1);
}

TEST(FramePacerTest, RampFallsOneStepPerFrameAndHandsOverToTheSchedule) {
    Layer layer;
    layer.pacer.start(60, 40, 4, kStart);
    EXPECT_TRUE(layer.pacer.isSwitching());
    nsecs_t due = kStart;
    for (float fps : {55.0f, 50.0f, 45.0f}) {
        due += static_cast<nsecs_t>(1e9f / fps);
        const auto decision = layer.queueAt(due - 3 * kMs);
        EXPECT_EQ(decision.event, Event::None) << fps;
        EXPECT_EQ(decision.sleepNs, 3 * kMs) << fps;
    }
    due += 25 * kMs;
    const auto last = layer.queueAt(due - 3 * kMs);
    EXPECT_EQ(last.event, Event::RampFinished);
    EXPECT_EQ(last.sleepNs, 3 * kMs);
    EXPECT_FALSE(layer.pacer.isSwitching());
    // No frame without delay in between: the clock starts at the ramp's end.
    EXPECT_EQ(layer.queueAt(due + 5 * kMs).sleepNs, 20 * kMs);
}

TEST(FramePacerTest, RisingRampEndsToo) {
    Layer layer;
    layer.pacer.start(30, 60, 3, kStart);
    int frames = 0;
    while (layer.pacer.isSwitching() && frames < 10) {
        layer.queueAt(kStart);
        ++frames;
    }
    EXPECT_EQ(frames, 3);
    EXPECT_EQ(layer.pacer.interval(), 16'666'667);
}

TEST(FramePacerTest, HostileRatesNeitherOverflowNorRampForEver) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    const struct {
        float current;
        float target;
    } cases[] = {
            {60, 60},          // nothing to step
            {60.000004f, 60},  // a step lost in rounding
            {0, 60},          {-30, 60},           {60, -60},
            {60, 0},          {60, 1e-30f},        {kInfinity, 60},
            {60, kInfinity},  {std::nanf(""), 60}, {60, std::nanf("")},
    };
    for (const auto& c : cases) {
        for (int rampFrames : {0, 10}) {
            Layer layer;
            layer.pacer.start(c.current, c.target, rampFrames, kStart);
            for (int frame = 0; frame < 40; ++frame) layer.queueAt(kStart + frame * 16 * kMs);
            EXPECT_FALSE(layer.pacer.isSwitching()) << c.current << " to " << c.target;
        }
    }
}

TEST(FramePacerTest, ResetAndStopRestartTheClock) {
    Layer layer;
    layer.pacer.start(60, 50, 0, kStart);
    layer.queueAt(kStart);
    layer.pacer.resetClock();
    EXPECT_EQ(layer.queueAt(kStart + kMs).event, Event::ClockStarted);
    layer.pacer.stop(0);
    EXPECT_EQ(layer.pacer.targetFps(), 0);
    layer.pacer.start(60, 40, 0, kStart);
    EXPECT_EQ(layer.queueAt(kStart + 2 * kMs).event, Event::ClockStarted);
    EXPECT_EQ(layer.pacer.interval(), 25 * kMs);
}

}  // namespace
}  // namespace android
