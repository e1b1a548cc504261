// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "layers/InGameTracker.h"

#include "base/SaturatingCast.h"
#include "perf/PerfProxy.h"

namespace android {
namespace {

constexpr nsecs_t kSecond = 1'000'000'000;

}  // namespace

void InGameTracker::queueBuffer(nsecs_t time) {
    if (mFrameCount == 0) {
        mWindowStart = time;
        mFrameCount = 1;
        return;
    }
    if (saturatingSub<nsecs_t>(time, mWindowStart) < kSecond) {
        mFrameCount = saturatingAdd<int32_t>(mFrameCount, 1);
        return;
    }
    // The buffer that closes a window belongs to neither: the window holds what came within one
    // second of its first buffer, and the next one opens with the next buffer.
    const int mode = PerfProxy::getFpsMode(static_cast<float>(mFrameCount));
    mFpsMode = mode;
    if (mode != -1) mFrameInterval = mode == 0 ? 0 : kSecond / mode;
    mFrameCount = 0;
}

void InGameTracker::trackMoveEvent(nsecs_t time) {
    if (mLastMoveTime >= 0) {
        const nsecs_t interval = saturatingSub<nsecs_t>(time, mLastMoveTime);
        if (interval < mFrameInterval) {
            // A running mean in which the one before the first fast move weighs as one sample.
            const nsecs_t weight = nsecs_t{mMoveCount} + 1;
            const nsecs_t sum = saturatingMul<nsecs_t>(mTouchInterval, weight);
            mTouchInterval = saturatingAdd(sum, interval) / (weight + 1);
            mMoveCount = saturatingAdd<int32_t>(mMoveCount, 1);
        } else {
            mMoveCount = 0;
        }
    }
    mLastMoveTime = time;
}

}  // namespace android
