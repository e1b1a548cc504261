// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <utils/Timers.h>

#include <cstdint>

namespace android {

// The schedule by which a layer's frames are paced to a target rate: when the next frame may be
// queued. Arithmetic only; the caller brings the times and does the sleeping. A value type without
// a lock.
//
//                       start(ramp frames < 1)
//              +---------------------------------------+
//              |                                       v
//          [ idle ] --start(ramp frames >= 1)--> [ fixed rate ] <--+ late frame, not made up for:
//              |                                       ^       |   | the clock restarts
//              v                                       |       +---+
//          [ ramp ] ---- within one step of the target +
//
// On the fixed rate, frame n after the clock's start is due at base + n * interval, so that one
// frame's rounding or delay does not shift the ones after it. On the ramp the rate falls by one
// step per frame and every frame is due one interval after the one before.
class FramePacer {
  public:
    enum class Event {
        None,
        ClockStarted,  // this frame starts the schedule and is not delayed
        RampFinished,  // from the next frame on the target rate holds
    };

    struct Decision {
        nsecs_t sleepNs;  // below 1: the frame is due already
        Event event;
    };

    // Starts pacing. With `rampFrames` of 1 or more the rate glides from currentFps to targetFps
    // over that many frames; `lastFrame` is the time that the first of them follows.
    void start(float currentFps, float targetFps, int32_t rampFrames, nsecs_t lastFrame);

    // Pacing is off; only the target is noted.
    void stop(float targetFps);

    // The next frame that is not on the ramp will start the clock anew.
    void resetClock();

    // Schedules the frame queued at `queueTime`, whose predecessor went on at `lastPaceTime`.
    // Without `compensate`, a frame that comes late restarts the clock instead of having the frames
    // after it hurry.
    Decision schedule(nsecs_t queueTime, nsecs_t lastPaceTime, nsecs_t now, bool compensate);

    bool isSwitching() const { return mTargetFpsSwitching; }
    float targetFps() const { return mTargetFps; }
    nsecs_t interval() const { return mPaceInterval; }

  private:
    Event advanceRamp();

    bool mTargetFpsSwitching = false;  // on the ramp
    float mTargetFps = 0.0f;
    float mRampFps = 0.0f;        // the ramp's rate at this frame
    float mRampStep = 0.0f;       // by which the ramp's rate falls per frame
    int64_t mPaceFrameCount = 0;  // frames since mPaceBase
    nsecs_t mPaceInterval = -1;   // one frame at the rate in force
    nsecs_t mPaceBase = -1;       // the clock's start; negative = not started
    nsecs_t mPaceDue = -1;        // when the current frame may be queued
};

}  // namespace android
