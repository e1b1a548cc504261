// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// What is switched for a layer: headroom control, the release by a touch, and target-FPS pacing.

#include <algorithm>
#include <ctime>

#include "perf/PerfProxy.h"
#include "perf/TraceSection.h"
#include "phr/LogTag.h"
#include "phr/PHRMonitor.h"

namespace android {

void PHRMonitor::setQuickTouchStatus(int id, bool enable) {
    sp<LayerPHRState> state;
    {
        // Look-up and focus under one lock: a layer that is unregistered meanwhile must not take
        // the focus.
        Mutex::Autolock lock(mLock);
        if (mFocusLayerId != kNoLayer && mFocusLayerId != id) return;
        const auto it = mLayers.find(id);
        if (it == mLayers.end()) return;
        state = it->second;
        if (state->mQuickTouchActive.exchange(enable) == enable) return;
        mFocusLayerId = enable ? id : kNoLayer;
    }
    if (enable && mPHRDynamicEnable) resetAdaptivePhrState(state.get());
    const char* change = enable ? "enable PHR" : "disable PHR";
    PerfProxy::VTRACE_NAME(change);
    PerfProxy::VLOGD(kPhrLogTag, "Layer %d: %s", id, change);
}

void PHRMonitor::unblockBuffer(int id) {
    const sp<LayerPHRState> state = getLayerState(id);
    if (state == nullptr) return;
    state->mUnblocked = true;
    if (!state->mHasPending) state->mDropWaitCount = kFirstDropWait;
    if (state->releaseWaiters()) PerfProxy::VTRACE_NAME("unblockBuffer");
}

void PHRMonitor::setTargetFpsStatus(int id, bool enable, float currentFps, float targetFps) {
    const sp<LayerPHRState> state = getLayerState(id);
    if (state == nullptr) return;
    {
        Mutex::Autolock lock(state->mFieldsLock);
        FramePacer& pacer = state->mPacer;
        if (enable == state->mTargetFpsActive && targetFps == pacer.targetFps()) return;
        if (enable) {
            pacer.start(currentFps, targetFps, mTargetFpsSwitchTime,
                        std::max<nsecs_t>(state->mLastQueueTime, state->mLastPaceTime));
        } else {
            pacer.stop(targetFps);
        }
        state->mTargetFpsActive = enable;
    }
    if (enable) {
        const double target = targetFps;
        PerfProxy::VTRACE_FORMAT("enable target fps: %f", target);
        PerfProxy::VLOGD(kPhrLogTag, "Layer %d: enable target fps: %f", id, target);
    } else {
        PerfProxy::VTRACE_NAME("disable target fps");
        PerfProxy::VLOGD(kPhrLogTag, "Layer %d: %s", id, "disable target fps");
    }
}

bool PHRMonitor::isTargetFpsSwitching(int id) {
    const sp<LayerPHRState> state = getLayerState(id);
    if (state == nullptr) return false;
    Mutex::Autolock lock(state->mFieldsLock);
    return state->mPacer.isSwitching();
}

void PHRMonitor::adjustForTargetFps(LayerPHRState* state) {
    FramePacer::Decision decision;
    {
        Mutex::Autolock lock(state->mFieldsLock);
        decision = state->mPacer.schedule(state->mLastQueueTime, state->mLastPaceTime,
                                          systemTime(SYSTEM_TIME_MONOTONIC), mTargetFpsCompensate);
    }
    switch (decision.event) {
        case FramePacer::Event::None:
            break;
        case FramePacer::Event::ClockStarted:
            PerfProxy::VTRACE_NAME("Switched to target fps now.");
            break;
        case FramePacer::Event::RampFinished:
            PerfProxy::VTRACE_NAME("Target fps smooth switch finished.");
            break;
    }
    if (decision.sleepNs < 1) return;

    TraceSection section("Pending for target fps");
    // The nanoseconds field alone, on purpose: the system refuses one of a second or more, so that
    // a schedule gone wrong can never freeze the queueing thread for longer than that. The cast is
    // meant too. It keeps the low 32 bits: of a delay of 5 s a sleep of 0.7 s is left.
    timespec request{};
    request.tv_nsec = static_cast<uint32_t>(decision.sleepNs);
    nanosleep(&request, nullptr);
}

}  // namespace android
