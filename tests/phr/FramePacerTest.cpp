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

TEST(FramePacerTest, LateFramesCatchUpOrRestartTheClock) {
    Layer layer;
    layer.pacer.start(60, 50, 0, kStart);
    EXPECT_EQ(layer.queueAt(kStart).event, Event::ClockStarted);
    EXPECT_EQ(layer.queueAt(kStart + 35 * kMs).sleepNs, -15 * kMs);  // was due at 20
    EXPECT_EQ(layer.queueAt(kStart + 38 * kMs).sleepNs, 2 * kMs);    // due at 40
    EXPECT_EQ(layer.queueAt(kStart + 45 * kMs).sleepNs, 15 * kMs);   // due at 60

    layer.compensate = false;
    layer.pacer.resetClock();
    const nsecs_t restart = kStart + 60 * kMs;
    layer.queueAt(restart);
    // One millisecond late is not late yet.
    EXPECT_EQ(layer.queueAt(restart + 21 * kMs).event, Event::None);
    const auto late = layer.queueAt(restart + 42 * kMs + 1);
    EXPECT_EQ(late.event, Event::ClockStarted);
    EXPECT_LT(late.sleepNs, 1);
    EXPECT_EQ(layer.queueAt(restart + 50 * kMs).sleepNs, 12 * kMs + 1);
}

TEST(FramePacerTest, RampTakesOneStepPerFrameAndHandsOverToTheSchedule) {
    Layer layer;
    layer.pacer.start(60, 40, 4, kStart);
    nsecs_t due = kStart;
    for (float fps : {55.0f, 50.0f, 45.0f, 40.0f}) {
        due += static_cast<nsecs_t>(1e9f / fps);
        const auto decision = layer.queueAt(due - 3 * kMs);
        EXPECT_EQ(decision.event, fps == 40.0f ? Event::RampFinished : Event::None) << fps;
        EXPECT_EQ(decision.sleepNs, 3 * kMs) << fps;
    }
    // No frame without delay in between: the clock starts at the ramp's end.
    EXPECT_EQ(layer.queueAt(due + 5 * kMs).sleepNs, 20 * kMs);

    layer.pacer.start(30, 60, 2, kStart);
    EXPECT_EQ(layer.queueAt(kStart).event, Event::None);
    EXPECT_EQ(layer.queueAt(kStart).event, Event::RampFinished);
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
