// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "phr/LayerPHRState.h"

#include "base/SaturatingCast.h"

namespace android {

LayerPHRState::LayerPHRState(int32_t layerId, const std::string& name, float minRate,
                             float highFpsMinRate)
      : mLayerId(layerId),
        mFrameTimeTrackName("CPU frame time - " + name),
        mHeadroomTrackName("CPU headroom - " + name),
        mMinRate(minRate),
        mHighFpsMinRate(highFpsMinRate) {}

bool LayerPHRState::waitUnlessReleased(nsecs_t maxWaitNs) {
    Mutex::Autolock lock(mLock);
    // The headroom thread sets mReleased before it looks for waiters under the lock: either this
    // sees the flag, or the thread sees the waiter.
    return !mReleased && waitLocked(maxWaitNs);
}

bool LayerPHRState::waitUnlessReleasedSince(uint32_t releaseCount, nsecs_t maxWaitNs) {
    Mutex::Autolock lock(mLock);
    // An unblock sets mUnblocked before it looks for waiters, so the same holds for it. It is taken
    // first, whatever else ends the wait: it must not be left to the next buffer.
    return !mUnblocked.exchange(false) && mReleaseCount == releaseCount && waitLocked(maxWaitNs);
}

uint32_t LayerPHRState::releaseCount() {
    Mutex::Autolock lock(mLock);
    return mReleaseCount;
}

bool LayerPHRState::waitLocked(nsecs_t maxWaitNs) {
    if (mDetached) return false;
    const nsecs_t deadline = saturatingAdd(systemTime(SYSTEM_TIME_MONOTONIC), maxWaitNs);
    const uint32_t releaseCount = mReleaseCount;
    ++mWaiting;
    while (mReleaseCount == releaseCount && !mDetached) {
        const nsecs_t left = deadline - systemTime(SYSTEM_TIME_MONOTONIC);
        if (left <= 0) {
            --mWaiting;
            return true;
        }
        mCond.waitRelative(mLock, left);
    }
    return false;
}

bool LayerPHRState::releaseWaiters() {
    Mutex::Autolock lock(mLock);
    ++mReleaseCount;
    if (mWaiting == 0) return false;
    mWaiting = 0;
    mCond.broadcast();
    return true;
}

void LayerPHRState::detach() {
    Mutex::Autolock lock(mLock);
    mDetached = true;
    mWaiting = 0;
    mCond.broadcast();
}

}  // namespace android
