// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// How the headroom in force follows a layer's rates and frame times.

#include <algorithm>
#include <optional>

#include "base/SaturatingCast.h"
#include "perf/PerfProxy.h"
#include "phr/Headroom.h"
#include "phr/LogTag.h"
#include "phr/PHRMonitor.h"

namespace android {

namespace {

// Preset stepping: a frame time within this of the period counts as on time.
constexpr nsecs_t kFrameTimeToleranceNs = 2'000'000;
constexpr nsecs_t kPresetStepNs = 1'000'000;

// Adaptive stepping. A missed vsync is felt at once, an early release hardly: the headroom climbs
// twenty times as fast as it sinks.
constexpr nsecs_t kAdaptiveClimbNs = 2'000'000;
constexpr nsecs_t kAdaptiveSinkNs = 100'000;

// A window is heavy when it holds a frame clearly longer than a period and is not idle otherwise.
constexpr int32_t kHeavyWindowSum = 3;
constexpr int32_t kHeavyFrameWeight = 2;
// A window whose frames weigh two on average: the game cannot keep the rate up at all.
constexpr int32_t kOverloadedWindowSum = 30;
// Every frame of the window weighs one, since a heavier one would make the window heavy again: the
// game is back to one frame per period.
constexpr int32_t kSteadyWindowSum = FrameWeightWindow::kFrames;

// At high refresh rates a ceiling raised by an overload stays for this many heavy frames; then it
// falls to a little more than one period.
constexpr int32_t kCeilingHoldFrames = 50;
constexpr double kHeavyCeilingRate = 1.3;

void traceStep(std::optional<nsecs_t> headroom) {
    if (!headroom) return;
    PerfProxy::VTRACE_FORMAT("updatePresetHeadroom = %lld", static_cast<long long>(*headroom));
}

}  // namespace

void PHRMonitor::updateHeadRoom(int id, float minRate, float highFpsMinRate) {
    const sp<LayerPHRState> state = getLayerState(id);
    if (state == nullptr) return;
    nsecs_t headroom;
    {
        Mutex::Autolock lock(state->mFieldsLock);
        const nsecs_t period = periodLocked(*state);
        // A NaN fails these comparisons and so keeps the stored rate too.
        if (minRate >= 0.0f) state->mMinRate = minRate;
        if (highFpsMinRate >= 0.0f) state->mHighFpsMinRate = highFpsMinRate;
        const float rate = minRateLocked(*state);
        if (rate == 0.0f || period < 1) return;

        const HeadroomRange range = deriveHeadroomRange(rate, defaultMaxRate(), period);
        headroom = range.preset;
        state->mPresetHeadroom = range.preset;
        state->mMaxHeadroom = range.max;
        state->mHeadroom = headroom;
    }
    PerfProxy::VLOGD(kPhrLogTag, "Layer %d set headroom: %lld", id,
                     static_cast<long long>(headroom));
}

void PHRMonitor::checkAndUpdateHeadroom(LayerPHRState* state, int64_t frameTime) {
    if (mPHRDynamicEnable) {
        updateDynamicHeadroom(state, frameTime);
        return;
    }
    std::optional<nsecs_t> stepped;
    {
        Mutex::Autolock lock(state->mFieldsLock);
        const nsecs_t period = periodLocked(*state);
        if (period < 1) return;
        const bool late = saturatingSub(frameTime, period) > kFrameTimeToleranceNs;
        const bool early = saturatingAdd(frameTime, kFrameTimeToleranceNs) < period;
        if (late || early) {
            stepped = updatePresetHeadroomLocked(*state, period, /*decrease=*/early, kPresetStepNs);
        }
    }
    traceStep(stepped);
}

void PHRMonitor::updateDynamicHeadroom(LayerPHRState* state, int64_t frameTime) {
    std::optional<nsecs_t> stepped;
    float ratio;
    nsecs_t headroom;
    int32_t sum;
    int32_t frameCount;
    bool steady = false;
    {
        Mutex::Autolock lock(state->mFieldsLock);
        const nsecs_t period = periodLocked(*state);
        if (period < 1) return;
        ratio = frameTimeRatio(frameTime, period);
        FrameWeightWindow& window = state->mFrameWeightWindow;
        window.add(frameWeight(ratio));
        if (!window.isFull()) return;
        sum = window.sum();
        if (sum >= kHeavyWindowSum && window.maxWeight() >= kHeavyFrameWeight) {
            state->heavyHeadroomFrameCount = kFirstClimb;
            if (isHighFps()) updateMaxHeadroomLocked(*state, period);
        }
        const bool climbing = isClimbing(state->heavyHeadroomFrameCount);
        stepped = updatePresetHeadroomLocked(*state, period, /*decrease=*/!climbing,
                                             climbing ? kAdaptiveClimbNs : kAdaptiveSinkNs);
        headroom = state->mHeadroom;
        if (climbing) ++state->heavyHeadroomFrameCount;
        frameCount = state->heavyHeadroomFrameCount;
        if (isClimbOver(frameCount)) {
            steady = sum == kSteadyWindowSum;
            state->heavyHeadroomFrameCount = kHeadroomSinks;
        }
    }
    traceStep(stepped);
    PerfProxy::VTRACE_FORMAT(
            "checkAndUpdatePHR: weightRatio: %.3f, mFrameWeightWindowSum:%d, "
            "heavyHeadroomFrameCount: %d, mHeadroom: %lld",
            static_cast<double>(ratio), sum, frameCount, static_cast<long long>(headroom));
    if (steady) resetAdaptivePhrState(state);
}

nsecs_t PHRMonitor::periodLocked(const LayerPHRState& /*state*/) const {
    return mVsyncPeriod;
}

std::optional<nsecs_t> PHRMonitor::updatePresetHeadroomLocked(LayerPHRState& state, nsecs_t period,
                                                              bool decrease, nsecs_t step) {
    const std::optional<nsecs_t> headroom =
            stepHeadroom(state.mHeadroom, {state.mPresetHeadroom, state.mMaxHeadroom}, period,
                         decrease, step);
    if (headroom) state.mHeadroom = *headroom;
    return headroom;
}

void PHRMonitor::updateMaxHeadroomLocked(LayerPHRState& state, nsecs_t period) {
    nsecs_t ceiling;
    if (state.mFrameWeightWindow.sum() >= kOverloadedWindowSum) {
        state.mMaxHoldCount = kCeilingHoldFrames;
        ceiling = headroomAtRate(mHighFpsDefaultMaxRate, period);
    } else if (state.mMaxHoldCount > 0) {
        --state.mMaxHoldCount;
        return;
    } else {
        ceiling = saturatingCast<nsecs_t>(static_cast<double>(period) * kHeavyCeilingRate);
    }
    state.mMaxHeadroom = std::max(state.mPresetHeadroom, ceiling);
}

void PHRMonitor::resetAdaptivePhrState(LayerPHRState* state) {
    if (state == nullptr) return;
    nsecs_t headroom;
    {
        Mutex::Autolock lock(state->mFieldsLock);
        state->mMaxHoldCount = 0;
        state->heavyHeadroomFrameCount = kHeadroomSinks;
        state->mFrameWeightWindow = {};
        headroom = state->mPresetHeadroom;
        state->mHeadroom = headroom;
    }
    const long long headroomNs = headroom;
    PerfProxy::VLOGD(kPhrLogTag, "reset adaptive PHR state for layer %d, headroom=%lld",
                     state->mLayerId, headroomNs);
    PerfProxy::VTRACE_FORMAT("reset adaptive PHR state for layer %d, headroom=%lld",
                             state->mLayerId, headroomNs);
}

}  // namespace android
