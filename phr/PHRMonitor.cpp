// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Life of the headroom monitor: its thread, its layers and the vsyncs that drive it.

#include "phr/PHRMonitor.h"

#include <android/log.h>
#include <pthread.h>

#include <algorithm>
#include <limits>
#include <system_error>
#include <utility>
#include <vector>

#include "base/SaturatingCast.h"
#include "base/Singleton.h"
#include "features/FeatureManager.h"
#include "perf/PerfProxy.h"
#include "perf/TraceSection.h"
#include "phr/Headroom.h"
#include "phr/LogTag.h"
#include "timer/TimerThread.h"

namespace android {

namespace {

// No deadline lies beyond what a 32-bit count of seconds can hold, as some waits use one.
constexpr nsecs_t kLastDeadline = std::numeric_limits<int32_t>::max() * nsecs_t{1'000'000'000};

}  // namespace

PHRMonitor* PHRMonitor::getInstance() {
    static std::atomic<PHRMonitor*> sInstance{nullptr};
    return instanceOnFirstUse<PHRMonitor>(sInstance, [] { return new PHRMonitor(); });
}

PHRMonitor::~PHRMonitor() {
    forceStop();
}

bool PHRMonitor::init() {
    Mutex::Autolock lifecycle(mLifecycleLock);
    if (mThread.joinable()) return true;

    mRunning = true;
    {
        Mutex::Autolock lock(mCondLock);
        mSignalledVsync = kNoVsync;  // one from before the last stop is not worth serving any more
    }
    try {
        mThread = std::thread(&PHRMonitor::threadMain, this);
    } catch (const std::system_error&) {
        __android_log_print(ANDROID_LOG_ERROR, kPhrLogTag, "PHRMonitor thread creation failed");
        mRunning = false;
        return false;
    }
    pthread_setname_np(mThread.native_handle(), "PHR");

    const FeatureManager* features = FeatureManager::getInstance();
    mTargetFpsSwitchTime = features->getTargetFpsSwitchTime();
    mTargetFpsCompensate = features->isTargetFpsCompensate();
    mDefaultMaxRate = features->getDefaultMaxHeadroomRate(false);
    mHighFpsDefaultMaxRate = features->getDefaultMaxHeadroomRate(true);
    mPHRDynamicEnable = features->isPHRDynamicEnabled();
    return true;
}

void PHRMonitor::forceStop() {
    Mutex::Autolock lifecycle(mLifecycleLock);
    if (!mRunning.exchange(false)) return;
    {
        Mutex::Autolock lock(mCondLock);
        mCond.signal();
    }
    if (mThread.joinable()) mThread.join();

    std::map<int32_t, sp<LayerPHRState>> layers;
    {
        Mutex::Autolock lock(mLock);
        layers.swap(mLayers);
        // A dropped layer must not keep the focus from those after a restart.
        mFocusLayerId = kNoLayer;
    }
    for (const auto& [id, state] : layers) state->detach();
    PerfProxy::VLOGD(kPhrLogTag, "PHRMonitor stopped");
}

void PHRMonitor::threadMain() {
    raiseFrameThreadPriority();
    Mutex::Autolock lock(mCondLock);
    while (mRunning) {
        if (mSignalledVsync == kNoVsync) {
            mCond.wait(mCondLock);
            continue;
        }
        // A vsync that is signalled while this one is served stays for the next round.
        releaseAtHeadroomPointLocked(std::exchange(mSignalledVsync, kNoVsync));
    }
    if (const sp<LayerPHRState> state = getLayerState(mFocusLayerId)) state->detach();
    PerfProxy::VLOGD(kPhrLogTag, "PHRMonitor thread exited");
}

void PHRMonitor::releaseAtHeadroomPointLocked(nsecs_t vsyncTime) {
    TraceSection section("wait for preset headroom");
    const sp<LayerPHRState> state = getLayerState(mFocusLayerId);
    const nsecs_t period = mVsyncPeriod;
    if (state == nullptr || period < 1) return;

    // Counted from the vsync, not from this thread's wake-up: a late wake-up must not add up over
    // the frames when the headroom point is near the next vsync.
    const nsecs_t deadline =
            std::min(saturatingAdd(vsyncTime, vsyncToHeadroomPoint(state->mHeadroom, period)),
                     kLastDeadline);
    while (mRunning) {
        const nsecs_t left = deadline - systemTime(SYSTEM_TIME_MONOTONIC);
        if (left <= 0) break;
        mCond.waitRelative(mCondLock, left);
    }
    if (!mRunning) return;

    if (state->mQueuedSinceVsync != 0) return;  // this period's buffer is through already
    // A queueing thread that gave up by itself took its buffer along; the next one is held again.
    if (!state->mTimedOut.exchange(false)) state->mReleased = true;
    state->releaseWaiters();
}

void PHRMonitor::registerLayer(int id, const std::string& name, float minRate,
                               float highFpsMinRate) {
    sp<LayerPHRState> state = sp<LayerPHRState>::make(id, name, minRate, highFpsMinRate);
    {
        Mutex::Autolock lock(mLock);
        std::swap(mLayers[id], state);
    }
    updateHeadRoom(id, -1.0f, -1.0f);
}

void PHRMonitor::unregisterLayer(int id) {
    {
        Mutex::Autolock lock(mLock);
        if (mFocusLayerId == id) mFocusLayerId = kNoLayer;
        const auto it = mLayers.find(id);
        if (it == mLayers.end()) return;
        it->second->detach();
        mLayers.erase(it);
    }
    PerfProxy::VLOGD(kPhrLogTag, "Layer %d destroyed", id);
}

sp<LayerPHRState> PHRMonitor::getLayerState(int id) {
    Mutex::Autolock lock(mLock);
    const auto it = mLayers.find(id);
    return it == mLayers.end() ? nullptr : it->second;
}

void PHRMonitor::setVsyncInfo(int64_t period, int fps) {
    if (mVsyncPeriod.exchange(period) == period) return;
    mFps = fps;
    std::vector<int32_t> ids;
    {
        Mutex::Autolock lock(mLock);
        ids.reserve(mLayers.size());
        for (const auto& [id, state] : mLayers) ids.push_back(id);
    }
    for (int32_t id : ids) updateHeadRoom(id, -1.0f, -1.0f);
}

void PHRMonitor::onVsync(int64_t /*vsyncTime*/) {
    const sp<LayerPHRState> state = getLayerState(mFocusLayerId);
    if (state == nullptr) return;
    state->mQueuedSinceVsync = 0;
    PerfProxy::VTRACE_NAME("onVsync");
    Mutex::Autolock lock(mCondLock);
    mSignalledVsync = systemTime(SYSTEM_TIME_MONOTONIC);
    mCond.signal();
}

float PHRMonitor::defaultMaxRate() const {
    return isHighFps() ? mHighFpsDefaultMaxRate : mDefaultMaxRate;
}

float PHRMonitor::minRateLocked(const LayerPHRState& state) const {
    return isHighFps() ? state.mHighFpsMinRate : state.mMinRate;
}

}  // namespace android
