// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <utils/LightRefBase.h>
#include <utils/Timers.h>

#include <cstdint>

#include "base/Relaxed.h"

namespace android {

// The rhythm of a game in its own process: the frame interval, from the buffers it queues in
// windows of one second, and the mean interval of touch moves that come faster than frames.
//
// The render thread reports buffers, the input thread moves, and either reads the results, all
// without a lock: a reader may see a result one window old.
class InGameTracker : public LightRefBase<InGameTracker> {
  public:
    void queueBuffer(nsecs_t time);
    void trackMoveEvent(nsecs_t time);

    int getFpsMode() const { return mFpsMode; }                  // -1 until a window gave one
    nsecs_t getFrameInterval() const { return mFrameInterval; }  // ns; -1 until known
    nsecs_t getTouchInterval() const { return mTouchInterval; }  // ns

  private:
    Relaxed<int32_t> mFpsMode{-1};
    Relaxed<int32_t> mFrameCount{0};  // buffers of the current window
    Relaxed<int32_t> mMoveCount{0};   // successive fast moves
    Relaxed<nsecs_t> mWindowStart{-1};
    Relaxed<nsecs_t> mLastMoveTime{-1};
    Relaxed<nsecs_t> mFrameInterval{-1};
    Relaxed<nsecs_t> mTouchInterval{10'000'000};  // at first as of a touch panel of 100 Hz
};

}  // namespace android
