// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "gfr/GFRMonitor.h"

#include <android/log.h>
#include <pthread.h>

#include <cmath>
#include <system_error>
#include <utility>

#include "base/SaturatingCast.h"
#include "base/Singleton.h"
#include "features/FeatureManager.h"
#include "gfr/GFRHandler.h"
#include "perf/PerfProxy.h"
#include "timer/TimerQueue.h"
#include "timer/TimerThread.h"

namespace android {
namespace {

constexpr char kLogTag[] = "Corvane.GFRMonitor";

// Bit of GfrTunables::flag: a changed frame time is reported by a release hint even without a
// boost.
constexpr int32_t kFlagResendOnFrameTime = 2;

std::atomic<GFRMonitor*> sInstance{nullptr};

const char* boolText(bool value) {
    return value ? "true" : "false";
}

bool differsBy(nsecs_t a, nsecs_t b, nsecs_t threshold) {
    const nsecs_t difference = a > b ? saturatingSub(a, b) : saturatingSub(b, a);
    return difference > threshold;
}

}  // namespace

GFRMonitor* GFRMonitor::getInstance() {
    return instanceOnFirstUse<GFRMonitor>(sInstance, [] { return new GFRMonitor(); });
}

GFRMonitor::GFRMonitor() = default;

GFRMonitor::~GFRMonitor() {
    forceStop();
}

bool GFRMonitor::init() {
    Mutex::Autolock lifecycle(mLifecycleLock);
    if (mRunning.load(std::memory_order_relaxed)) return true;

    auto queue = sp<TimerQueue>::make();
    if (!queue->isInitialized()) return false;
    mRunning.store(true, std::memory_order_relaxed);
    try {
        mThread = std::thread([this, queue] { monitorThreadMain(*queue); });
    } catch (const std::system_error&) {
        __android_log_print(ANDROID_LOG_ERROR, kLogTag, "Failed to create GFRMonitor thread");
        mRunning.store(false, std::memory_order_relaxed);
        return false;
    }
    pthread_setname_np(mThread.native_handle(), "BLT");
    PerfProxy::VLOGD(kLogTag, "GFRMonitor thread started");

    Mutex::Autolock lock(mLock);
    mTimerQueue = std::move(queue);
    return true;
}

void GFRMonitor::monitorThreadMain(TimerQueue& queue) {
    raiseFrameThreadPriority();
    runTimerLoop(queue, mRunning, kLogTag);
    PerfProxy::VLOGD(kLogTag, "GFRMonitor thread exited");
}

void GFRMonitor::forceStop() {
    Mutex::Autolock lifecycle(mLifecycleLock);
    if (!mRunning.exchange(false, std::memory_order_relaxed)) return;

    sp<TimerQueue> queue;
    {
        Mutex::Autolock lock(mLock);
        for (const auto& [layerId, state] : mLayers) {
            state->active = false;
            cancelPendingChecksLocked(*state);
        }
        queue = std::move(mTimerQueue);
    }
    queue->wake();
    mThread.join();
    {
        Mutex::Autolock lock(mLock);
        mLayers.clear();
    }
    PerfProxy::VLOGD(kLogTag, "GFRMonitor stopped");
}

void GFRMonitor::registerLayer(int layerId, const std::string& layerName,
                               const std::string& packageName) {
    GfrTunables tunables = FeatureManager::getInstance()
                                   ->getGFRTunables(packageName, /*useGlobal=*/true)
                                   .value_or(GfrTunables{});

    Mutex::Autolock lock(mLock);
    auto state = sp<LayerGFRState>::make(layerId, layerName, packageName, std::move(tunables));
    checkAndUpdateCacheLocked(*state, mVsyncPeriod.load(std::memory_order_relaxed), 0.0f,
                              /*force=*/false);
    const GfrTunables& t = state->tunables;
    PerfProxy::VLOGD(kLogTag,
                     "GFR Layer %d (%s): dynamic=%s allowSkipOrLower=%s golden=%.2fvsync K=%.2f "
                     "baseFreq=%d;%d;%d",
                     layerId, layerName.c_str(), boolText(t.dynamic), boolText(t.lowerBoost),
                     t.golden, t.kFactor, state->baseFreq(0), state->baseFreq(1),
                     state->baseFreq(2));

    // A check of a record that this one replaces finds out by itself that its frame is gone.
    mLayers[layerId] = std::move(state);
}

void GFRMonitor::unregisterLayer(int layerId) {
    Mutex::Autolock lock(mLock);
    const auto it = mLayers.find(layerId);
    if (it != mLayers.end()) {
        cancelPendingChecksLocked(*it->second);
        mLayers.erase(it);
    }
    PerfProxy::VLOGD(kLogTag, "GFR: Unregistered layer %d", layerId);
}

void GFRMonitor::setGFRActive(int layerId, bool active) {
    Mutex::Autolock lock(mLock);
    LayerGFRState* state = findLayerLocked(layerId);
    if (state == nullptr) return;
    state->active = active;
    if (!active) cancelPendingChecksLocked(*state);
    PerfProxy::VLOGD(kLogTag, "Layer %d %s GFR", layerId, active ? "enable" : "disable");
}

void GFRMonitor::updateLayerTunables(int layerId, const GfrTunables& tunables) {
    Mutex::Autolock lock(mLock);
    LayerGFRState* state = findLayerLocked(layerId);
    if (state == nullptr) return;
    state->setTunables(tunables);
    checkAndUpdateCacheLocked(*state, mVsyncPeriod.load(std::memory_order_relaxed),
                              state->deadlines.fps, /*force=*/true);
    const GfrTunables& t = state->tunables;
    PerfProxy::VLOGD(kLogTag,
                     "updateLayerTunables layer %d: dynamic=%d lowerBoost=%d golden=%.2fvsync "
                     "K=%.2f baseFreq=%d;%d;%d",
                     layerId, t.dynamic, t.lowerBoost, t.golden, t.kFactor, state->baseFreq(0),
                     state->baseFreq(1), state->baseFreq(2));
}

void GFRMonitor::setVsyncInfo(nsecs_t periodNs, int /*fpsMode*/) {
    mVsyncPeriod.store(periodNs, std::memory_order_relaxed);
}

void GFRMonitor::onQueueBegin(int layerId, nsecs_t queueBeginTime, nsecs_t frameTime,
                              nsecs_t jankHeadroom) {
    Mutex::Autolock lock(mLock);
    LayerGFRState* state = findActiveLayerLocked(layerId);
    if (state == nullptr) return;

    if (state->pendingCheckId != 0) {
        PerfProxy::VTRACE_FORMAT("frame finish, [%s]", state->layerName.c_str());
        cancelPendingChecksLocked(*state);
    }
    state->queueBeginTime = queueBeginTime;
    state->jankHeadroom = jankHeadroom;
    state->frameTime = frameTime;
    state->flags = 0;

    const nsecs_t vsyncPeriod = mVsyncPeriod.load(std::memory_order_relaxed);
    PerfProxy::VTRACE_PROFILE("frameTime = %lld, frameHeadroom = %lld, jankHeadroom = %lld, [%s]",
                              static_cast<long long>(frameTime),
                              static_cast<long long>(saturatingSub(vsyncPeriod, frameTime)),
                              static_cast<long long>(jankHeadroom), state->layerName.c_str());
    // Until queue end tells the layer's own rate, the display's counts.
    checkAndUpdateCacheLocked(*state, vsyncPeriod, 0.0f, /*force=*/false);
    state->frameDeadline = saturatingAdd(saturatingAdd(vsyncPeriod, jankHeadroom), queueBeginTime);
    state->l0DelayNs = 0;
    sendFrameHintLocked(*state);
    state->prevFrameTime = frameTime;
}

void GFRMonitor::onQueueEnd(int layerId, nsecs_t queueEndTime, float fps) {
    Mutex::Autolock lock(mLock);
    LayerGFRState* state = findActiveLayerLocked(layerId);
    if (state == nullptr) return;

    state->queueEndTime = queueEndTime;
    if (state->tunables.jankThresholds.empty()) return;
    if (std::fabs(state->deadlines.fps - fps) > kFpsTolerance) {
        checkAndUpdateCacheLocked(*state, mVsyncPeriod.load(std::memory_order_relaxed), fps,
                                  /*force=*/false);
    }
    if (state->tunables.dynamic && state->deadlines.hasLevel(0)) {
        state->l0DelayNs = state->deadlines.adjustedL0DelayNs(state->frameDeadline, queueEndTime);
    }
    scheduleNextCheckLocked(*state, state->queueBeginTime, 0);
}

void GFRMonitor::updateFrameDropWindow(int layerId, int drops) {
    Mutex::Autolock lock(mLock);
    LayerGFRState* state = findLayerLocked(layerId);
    if (state == nullptr) return;

    FrameDropWindow& window = state->dropWindow;
    if (!window.record(drops)) {
        PerfProxy::VTRACE_PROFILE("[FrameDrop] Extreme drop detected (%d frames), reset window",
                                  drops);
    } else if (FeatureManager::getInstance()->isFeatureEnabled(DEBUG)) {
        PerfProxy::VTRACE_PROFILE(
                "[FrameDrop] drops64=%d/64, drops32=%d/32, drops16=%d/16, current=%d frames",
                window.dropsAmong(FrameDropWindow::kSlots), window.dropsAmong(32),
                window.dropsAmong(16), drops);
    }
}

LayerGFRState* GFRMonitor::findLayerLocked(int layerId) {
    const auto it = mLayers.find(layerId);
    return it == mLayers.end() ? nullptr : it->second.get();
}

LayerGFRState* GFRMonitor::findActiveLayerLocked(int layerId) {
    LayerGFRState* state = findLayerLocked(layerId);
    return state != nullptr && state->active ? state : nullptr;
}

void GFRMonitor::checkAndUpdateCacheLocked(LayerGFRState& state, nsecs_t vsyncPeriod, float fps,
                                           bool force) {
    state.deadlines.update(vsyncPeriod, fps, state.tunables,
                           FeatureManager::getInstance()->getFrameResendVariation(), force);
}

void GFRMonitor::scheduleNextCheckLocked(LayerGFRState& state, nsecs_t frameIdentity, int level) {
    // A forced update without a display period leaves deadlines that are no times to check at.
    if (!state.deadlines.hasLevel(level) || state.deadlines.periodNs < 1) return;
    if (level == 0 && state.l0DelayNs > 0) {
        PerfProxy::VTRACE_PROFILE("[GFR2.0] L0 timer adjusted: delayTime=%lldns",
                                  static_cast<long long>(state.l0DelayNs));
    }
    if (mTimerQueue == nullptr) return;

    // Two buffers of one layer may be queued at once, and then end twice: the later end counts.
    cancelPendingChecksLocked(state);
    const nsecs_t delay = state.deadlines.checkDelayNs(level, systemTime(SYSTEM_TIME_MONOTONIC),
                                                       state.queueEndTime, state.l0DelayNs);
    const auto handler = sp<GFRHandler>::make(this, state.layerId, level, frameIdentity);
    state.pendingCheckId = mTimerQueue->sendMessageDelayed(delay, handler, Message());
    handler->setCheckIdLocked(state.pendingCheckId);
}

void GFRMonitor::cancelPendingChecksLocked(LayerGFRState& state) {
    if (state.pendingCheckId != 0 && mTimerQueue != nullptr) {
        mTimerQueue->cancelTask(state.pendingCheckId);
    }
    state.pendingCheckId = 0;
}

int32_t GFRMonitor::calculateBoostFrequencyOnWakeupLocked(LayerGFRState& state, int level,
                                                          int32_t base) {
    BoostInputs inputs(state.deadlines, state.tunables, state.dropWindow);
    inputs.level = level;
    inputs.baseMHz = base;
    inputs.ttdNs = saturatingSub(state.frameDeadline, systemTime(SYSTEM_TIME_MONOTONIC));
    inputs.l0DelayNs = state.l0DelayNs;
    inputs.lastBoostMHz = state.lastBoostFreq;
    inputs.maxFreqMHz = state.maxFreq;
    const auto decision = decideBoost(inputs);
    if (!decision) {
        PerfProxy::VTRACE_PROFILE("[GFR2.0] Invalid level: %d", level);
        return base;
    }
    state.flags |= decision->flags;
    if (decision->flags & BOOST_INVALID_BUDGET) {
        PerfProxy::VLOGD(kLogTag,
                         "[GFR2.0] Invalid golden threshold or targetFrameTime, using base freq");
    }
    PerfProxy::VTRACE_PROFILE("[GFR2.0] L%d: ttd=%lldns base=%d MHz final_freq=%d MHz flags=0x%03x",
                              level, static_cast<long long>(inputs.ttdNs), base, decision->freqMHz,
                              state.flags);
    return decision->freqMHz;
}

void GFRMonitor::sendFrameHintLocked(LayerGFRState& state) {
    const bool frameTimeChanged =
            (state.tunables.flag & kFlagResendOnFrameTime) != 0 &&
            differsBy(state.frameTime, state.prevFrameTime, state.deadlines.resendThresholdNs);
    if (!state.boosted && !frameTimeChanged) return;
    state.boosted = false;
    // The hint's frame time has 32 bits: after a pause of 5 s it tells 0.7 s.
    PerfProxy::getInstance()->frameHint(0, static_cast<int32_t>(state.frameTime), state.layerId,
                                        state.packageName, 0);
}

}  // namespace android
