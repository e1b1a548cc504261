// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "phr/FramePacer.h"

#include <cmath>

#include "base/SaturatingCast.h"

namespace android {

namespace {

// A frame this much later than its interval counts as late; below that it is scheduling noise.
constexpr nsecs_t kLateToleranceNs = 1'000'000;

constexpr float kNsPerSecond = 1e9f;

// What is no rate (zero, negative, not a number) delays nothing.
nsecs_t frameInterval(float fps) {
    return fps > 0.0f ? saturatingCast<nsecs_t>(kNsPerSecond / fps) : 0;
}

}  // namespace

void FramePacer::start(float currentFps, float targetFps, int32_t rampFrames, nsecs_t lastFrame) {
    mTargetFps = targetFps;
    if (rampFrames < 1) {
        mPaceInterval = frameInterval(targetFps);
    } else {
        mRampFps = currentFps;
        mRampStep = (currentFps - targetFps) / static_cast<float>(rampFrames);
        mPaceDue = lastFrame;
        mTargetFpsSwitching = true;
    }
    resetClock();
}

void FramePacer::stop(float targetFps) {
    mTargetFps = targetFps;
    resetClock();
}

void FramePacer::resetClock() {
    mPaceBase = -1;
    mPaceFrameCount = 0;
}

FramePacer::Decision FramePacer::schedule(nsecs_t queueTime, nsecs_t lastPaceTime, nsecs_t now,
                                          bool compensate) {
    Event event = Event::None;
    if (mTargetFpsSwitching) {
        event = advanceRamp();
    } else {
        if (!compensate && saturatingSub(queueTime, lastPaceTime) >
                                   saturatingAdd(mPaceInterval, kLateToleranceNs)) {
            resetClock();
        }
        if (mPaceBase < 0) {
            mPaceBase = now;
            return {0, Event::ClockStarted};
        }
        ++mPaceFrameCount;
        mPaceDue = saturatingAdd(mPaceBase, saturatingMul(mPaceInterval, mPaceFrameCount));
    }
    return {saturatingSub(mPaceDue, queueTime), event};
}

FramePacer::Event FramePacer::advanceRamp() {
    const float previousFps = mRampFps;
    mRampFps -= mRampStep;
    // Some ramps would never come near their target and end there at once: those that leave the
    // positive rates, or never had any, and those that stand still because the rate's rounding
    // swallows the step.
    const bool stuck = !(mRampFps > 0.0f) || mRampFps == previousFps;
    mPaceInterval = frameInterval(stuck ? mTargetFps : mRampFps);
    mPaceDue = saturatingAdd(mPaceDue, mPaceInterval);
    if (!stuck && !(std::fabs(mRampFps - mTargetFps) < std::fabs(mRampStep))) return Event::None;

    mPaceBase = mPaceDue;
    mPaceInterval = frameInterval(mTargetFps);
    mTargetFpsSwitching = false;
    return Event::RampFinished;
}

}  // namespace android
