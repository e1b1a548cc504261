// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The hold-back of queued buffers, and what the latches tell about it.

#include <algorithm>
#include <cmath>

#include "base/SaturatingCast.h"
#include "perf/PerfProxy.h"
#include "perf/TraceSection.h"
#include "phr/Headroom.h"
#include "phr/LogTag.h"
#include "phr/PHRMonitor.h"

namespace android {

namespace {

// After a jank a buffer is worth more early than fresh: no additional delay for this long.
constexpr nsecs_t kJankRecoveryNs = 1'000'000'000;

// Only at this rate does a touch wait for the queue to drain before the delay may come back.
constexpr int32_t kDropWaitFps = 60;

// Latches in a row that found buffers still pending: half a second at 60 Hz.
constexpr int32_t kBusyLatches = 31;

// A latch this many periods after the one before it missed at least one vsync.
constexpr float kJankPeriods = 2.0f;

}  // namespace

void PHRMonitor::onBufferIncrement(int id, int64_t frameTime, int64_t queueTime, bool instant) {
    const sp<LayerPHRState> state = getLayerState(id);
    if (state == nullptr) return;
    if (state->mQuickTouchActive) checkAndUpdateHeadroom(state.get(), frameTime);

    PerfProxy::VTRACE_ASYNC_END(state->mFrameTimeTrackName.c_str(), id);
    PerfProxy::VTRACE_ASYNC_BEGIN(state->mHeadroomTrackName.c_str(), id);
    trackQueueBuffer(state.get(), instant, queueTime);
    PerfProxy::VTRACE_ASYNC_END(state->mHeadroomTrackName.c_str(), id);
    PerfProxy::VTRACE_ASYNC_BEGIN(state->mFrameTimeTrackName.c_str(), id);
}

void PHRMonitor::trackQueueBuffer(LayerPHRState* state, bool instant, int64_t queueTime) {
    state->mLastQueueTime = queueTime;
    if (state->mTargetFpsActive) {
        adjustForTargetFps(state);
        state->mLastPaceTime = systemTime(SYSTEM_TIME_MONOTONIC);
        return;
    }
    const nsecs_t period = mVsyncPeriod;
    if (!state->mQuickTouchActive || period < 1 || !mRunning) return;

    TraceSection section("trackQueueBuffer");
    const int32_t pending = state->mPendingCount;
    const nsecs_t headroom = state->mHeadroom;
    const nsecs_t lastLatch = state->mLastLatchTime;
    const nsecs_t current = currentHeadroom(lastLatch, queueTime, period, pending);
    PerfProxy::VTRACE_FORMAT("bufferCount:%d, curHeadroom: %lld, mHeadroom: %lld", pending,
                             static_cast<long long>(current), static_cast<long long>(headroom));

    // An instant buffer passes, and so does the one after it: the two come in quick succession.
    const bool wasInstant = state->mInstant.exchange(instant);
    if (!instant && !wasInstant && current >= headroom) {
        holdBack(state, std::min(saturatingSub(current, headroom), period), headroom, lastLatch);
    } else {
        PerfProxy::VTRACE_NAME("not pending for instant buffer or not reach target headroom");
    }
    state->mReleased = false;
    ++state->mPendingCount;
    ++state->mQueuedSinceVsync;
}

// The first wait lasts until the headroom thread releases the buffer, at most `maxWait`. That
// thread knows only vsyncs, so a second wait brings the buffer to its headroom before the vsync
// that will show it, behind those that are pending by then.
void PHRMonitor::holdBack(LayerPHRState* state, nsecs_t maxWait, nsecs_t headroom,
                          nsecs_t lastLatch) {
    if (state->mReleased) {
        PerfProxy::VTRACE_NAME("timer expired");
    } else {
        if (state->waitUnlessReleased(maxWait)) state->mTimedOut = true;
        PerfProxy::VTRACE_NAME("delay finish");
    }
    // From here on, whatever lets the buffer go ends the delay that is being decided.
    const uint32_t releaseCount = state->releaseCount();
    if (state->mUnblocked.exchange(false)) return;

    const nsecs_t period = mVsyncPeriod;  // the display may have switched during the wait
    if (period < 1) return;
    const int32_t pending = state->mPendingCount;
    const nsecs_t extra =
            saturatingSub(currentHeadroom(lastLatch, systemTime(SYSTEM_TIME_MONOTONIC), period,
                                          pending),
                          headroom);
    if (saturatingSub<nsecs_t>(state->mLastQueueTime, state->mLastJankTime) < kJankRecoveryNs) {
        PerfProxy::VTRACE_NAME("No additional delay due to recent jank.");
    } else if (isDropWait(state->mDropWaitCount) && mFps == kDropWaitFps) {
        PerfProxy::VTRACE_NAME("No additional delay due to wait for buffer drop");
    } else if (extra > 0 && pending >= 1) {
        PerfProxy::VTRACE_NAME("additional delay");
        PerfProxy::VLOGD(kPhrLogTag, "additional delay");
        state->waitUnlessReleasedSince(releaseCount, std::min(period, extra));
    }
}

void PHRMonitor::onBufferDecrement(int id, int pendingCount, int64_t latchTime) {
    const int32_t focus = mFocusLayerId;
    if (focus != kNoLayer && focus != id) return;
    const sp<LayerPHRState> state = getLayerState(id);
    const nsecs_t period = mVsyncPeriod;
    if (state == nullptr || state->mTargetFpsActive || period < 1) return;

    if (pendingCount < 1) {
        state->mBusyLatchCount = 0;
    } else {
        ++state->mBusyLatchCount;
    }
    if (!state->mQuickTouchActive && isQuickTouchApplicable(state.get())) {
        setQuickTouchStatus(id, true);
    }
    if (state->mQuickTouchActive) {
        state->mPendingCount = pendingCount;
        state->mHasPending = pendingCount > 0;
        if (mFps == kDropWaitFps) countDropWait(state.get(), pendingCount);
    }
    trackJank(state.get(), latchTime, period);
}

bool PHRMonitor::isQuickTouchApplicable(LayerPHRState* state) {
    Mutex::Autolock lock(state->mFieldsLock);
    return state->mBusyLatchCount >= kBusyLatches && minRateLocked(*state) != 0.0f;
}

void PHRMonitor::countDropWait(LayerPHRState* state, int pendingCount) {
    int32_t count = state->mDropWaitCount;
    // A touch that restarts the count meanwhile prevails.
    state->mDropWaitCount.compare_exchange_strong(count, dropWaitAfterLatch(count, pendingCount));
}

void PHRMonitor::trackJank(LayerPHRState* state, nsecs_t latchTime, nsecs_t period) {
    const nsecs_t sinceLatch = saturatingSub(latchTime, state->mLastLatchTime.exchange(latchTime));
    if (std::round(frameTimeRatio(sinceLatch, period)) < kJankPeriods) return;

    state->mLastJankTime = latchTime;
    bool tooMany;
    {
        Mutex::Autolock lock(state->mFieldsLock);
        tooMany = state->mJankTimes.record(latchTime);
    }
    if (!tooMany) return;
    setQuickTouchStatus(state->mLayerId, false);
    PerfProxy::VLOGD(kPhrLogTag, "Disable QuickTouch due to jank");
}

}  // namespace android
