// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <utils/Condition.h>
#include <utils/LightRefBase.h>
#include <utils/Mutex.h>
#include <utils/Timers.h>

#include <atomic>
#include <cstdint>
#include <string>

#include "phr/FramePacer.h"
#include "phr/FrameWeightWindow.h"
#include "phr/JankHistory.h"
#include "phr/LayerCounts.h"

namespace android {

// What headroom control knows of one layer, and the place where the layer's queueing thread waits.
//
// Shared by the monitor's map, the queueing threads, the latch and vsync hooks, the configuration
// callback and the headroom thread; whoever holds the last reference destroys it.
//
// The atomics keep the default order: a queueing thread combines several of them (flags, counters,
// latch time, headroom) that other threads write one after the other.
class LayerPHRState : public LightRefBase<LayerPHRState> {
  public:
    LayerPHRState(int32_t layerId, const std::string& name, float minRate, float highFpsMinRate);
    LayerPHRState(const LayerPHRState&) = delete;
    LayerPHRState& operator=(const LayerPHRState&) = delete;

    // Blocks the calling queueing thread until releaseWaiters() or detach(), for at most maxWaitNs.
    // Returns at once when the headroom thread has set mReleased already. True when the wait ended
    // by its time-out.
    bool waitUnlessReleased(nsecs_t maxWaitNs) EXCLUDES(mLock);

    // As waitUnlessReleased(), but returns at once when releaseWaiters() was called since
    // `releaseCount` was taken, or when an unblock is due, which it takes.
    bool waitUnlessReleasedSince(uint32_t releaseCount, nsecs_t maxWaitNs) EXCLUDES(mLock);

    // The calls of releaseWaiters() so far.
    uint32_t releaseCount() EXCLUDES(mLock);

    // Wakes the waiting threads. False when there are none.
    bool releaseWaiters() EXCLUDES(mLock);

    // Wakes the waiting threads and lets none wait from now on: for a state that leaves the
    // monitor, so that nobody would wake them later.
    void detach() EXCLUDES(mLock);

    const int32_t mLayerId;
    // With the layer's name, which the application chose: any length, any bytes.
    const std::string mFrameTimeTrackName;
    const std::string mHeadroomTrackName;

    std::atomic<bool> mQuickTouchActive{false};
    std::atomic<bool> mInstant{false};    // the last queued buffer was an instant one
    std::atomic<bool> mReleased{false};   // this vsync's buffer was released before it was queued
    std::atomic<bool> mTimedOut{false};   // the last headroom wait ended by its time-out
    std::atomic<bool> mUnblocked{false};  // an explicit unblock: skip the additional delay once

    std::atomic<nsecs_t> mHeadroom{-1};  // in force; written under mFieldsLock

    std::atomic<int32_t> mPendingCount{0};      // buffers queued and not yet latched
    std::atomic<int32_t> mQueuedSinceVsync{0};  // buffers queued since the layer's last vsync
    std::atomic<bool> mHasPending{false};
    std::atomic<int32_t> mDropWaitCount{kNoDropWait};
    std::atomic<int32_t> mBusyLatchCount{0};  // consecutive latches with buffers still pending

    std::atomic<nsecs_t> mLastQueueTime{-1};
    std::atomic<nsecs_t> mLastJankTime{-1};
    std::atomic<nsecs_t> mLastLatchTime{0};
    std::atomic<nsecs_t> mLastPaceTime{-1};  // after the last paced queue

    std::atomic<bool> mTargetFpsActive{false};  // written under mFieldsLock

    // Guards the bookkeeping that the queue, latch and configuration paths share. It is not mLock,
    // so that the headroom thread never waits for it.
    Mutex mFieldsLock;
    // Headroom rates, as fractions of a period, at up to 60 Hz and above.
    float mMinRate GUARDED_BY(mFieldsLock);
    float mHighFpsMinRate GUARDED_BY(mFieldsLock);
    nsecs_t mPresetHeadroom GUARDED_BY(mFieldsLock) = -1;
    nsecs_t mMaxHeadroom GUARDED_BY(mFieldsLock) = -1;
    int32_t mMaxHoldCount GUARDED_BY(mFieldsLock) = 0;  // frames that a raised ceiling still holds
    int32_t heavyHeadroomFrameCount GUARDED_BY(mFieldsLock) = kHeadroomSinks;
    FrameWeightWindow mFrameWeightWindow GUARDED_BY(mFieldsLock);
    JankHistory mJankTimes GUARDED_BY(mFieldsLock);
    FramePacer mPacer GUARDED_BY(mFieldsLock);

    Mutex mLock;
    int32_t mWaiting GUARDED_BY(mLock) = 0;  // queueing threads waiting on mCond

  private:
    bool waitLocked(nsecs_t maxWaitNs) REQUIRES(mLock);

    Condition mCond;
    // Tells a waiter that it was released, whatever wakes it and whoever waits again meanwhile.
    // Counts releases that find no waiter too. May wrap around: only equality counts.
    uint32_t mReleaseCount GUARDED_BY(mLock) = 0;
    bool mDetached GUARDED_BY(mLock) = false;
};

}  // namespace android
