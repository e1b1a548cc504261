// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <android/log.h>
#include <ui/Rect.h>

#include "base/SaturatingCast.h"
#include "gfr/GFRMonitor.h"
#include "layers/FrameTiming.h"
#include "layers/LayerInfo.h"
#include "layers/LayerManager.h"
#include "layers/LogTag.h"
#include "perf/PerfProxy.h"
#include "perf/TraceSection.h"
#include "phr/PHRMonitor.h"

namespace android {
namespace {

constexpr nsecs_t kNsPerMs = 1'000'000;

// Boost level of a CPU big jank. Above the levels of the boost device, so it goes to the service.
constexpr int kCpuBigJankLevel = 5;
// A menu at less than 30 fps may take its time.
constexpr int32_t kCpuBigJankMinMode = 30;

// More than three seconds: retiring layers needs no more precision than their own seconds.
constexpr nsecs_t kPeriodicCleanupInterval = 3'000'000'001;

}  // namespace

struct LayerManager::QueuedFrame {
    nsecs_t frameGap = 0;
    nsecs_t timeToPresent = 0;
    bool cpuBigJank = false;
    GFRMonitor* gfr = nullptr;  // null unless it is to hear of this frame
    PHRMonitor* phr = nullptr;  // ditto
    float pacedFps = 0.0f;      // 0 = not paced
};

void LayerManager::onBufferIncrement(const std::string& name, int layerId, int pid, int uid,
                                     nsecs_t /*extraTime*/, bool instant, uint32_t /*extra*/) {
    if (layerId < 1 || !mTrackingEnabled) return;

    const nsecs_t now = systemTime(SYSTEM_TIME_MONOTONIC);
    const sp<LayerInfo> layer = getOrCreateLayer(name, layerId, pid, uid, now);
    if (layer == nullptr) return;

    QueuedFrame frame;
    {
        Mutex::Autolock lock(mLock);
        const auto registered = mLayers.find(layerId);
        // A cleanup may have dropped the layer meanwhile: nothing may be registered for it any
        // more.
        if (registered == mLayers.end() || registered->second != layer) return;
        frame = trackQueueLocked(*layer, now);
    }

    if (frame.cpuBigJank) {
        const auto section =
                TraceSection::formatted("Detected CPU big jank [%s]", layer->mName.c_str());
        PerfProxy::getInstance()->frameHint(kCpuBigJankLevel, 0, layerId, layer->mPackageName, 0);
        __android_log_print(ANDROID_LOG_INFO, kLayerLogTag, "Send CPU big jank [%s].",
                            layer->mName.c_str());
    }
    if (frame.gfr != nullptr) {
        frame.gfr->onQueueBegin(layerId, now, frame.frameGap, frame.timeToPresent);
    }
    if (frame.phr != nullptr) frame.phr->onBufferIncrement(layerId, frame.frameGap, now, instant);

    const nsecs_t queueEnd = systemTime(SYSTEM_TIME_MONOTONIC);
    layer->mLastQueueEndTime = queueEnd;
    if (frame.gfr != nullptr) frame.gfr->onQueueEnd(layerId, queueEnd, frame.pacedFps);
}

LayerManager::QueuedFrame LayerManager::trackQueueLocked(LayerInfo& layer, nsecs_t now) {
    if (!layer.mActive) {
        layer.mRemoveDeadline = 0;
        layer.mActive = true;
    }
    layer.mLastQueueTime = now;
    layer.mFrameGap = now - layer.mLastQueueEndTime;
    layer.mExpectedPresentTime =
            predictTimeToPresent(now, mVsyncPeriod, layer.mVsyncAnchorTime, layer.queueDepth());
    if (layer.queueDepth() == 0) layer.mFirstFrameTime = now;
    layer.mVsyncFrameCount = saturatingAdd(layer.queueDepth(), 1);

    const int32_t oldMode = layer.mFpsMode;
    if (layer.updateFps()) {
        toggleFeaturesOnFpsLocked(layer, layer.mFpsMode == mDisplayFpsMode);
        if (layer.mFpsMode != oldMode) {
            onFpsModeChangedLocked();
            postSceneCheck();
        }
    }

    QueuedFrame frame;
    frame.frameGap = layer.mFrameGap;
    frame.timeToPresent = layer.timeToPresent();
    frame.cpuBigJank = mCpuBigJankThreshold >= 1 && layer.mFpsMode >= kCpuBigJankMinMode &&
                       layer.mFrameGap >= mCpuBigJankThreshold * kNsPerMs;
    if (layer.mGfrActive && layer.mGfrRegistered) {
        frame.gfr = mGfrMonitor;
    }
    if (layer.mPhrRegistered) frame.phr = mPhrMonitor.load(std::memory_order_relaxed);
    if (layer.isPaced()) frame.pacedFps = layer.targetFps();
    return frame;
}

void LayerManager::onBufferDecrement(const std::string& name, int layerId, int pendingCount,
                                     const Rect& bounds, bool focused, bool visible) {
    if (!mTrackingEnabled || mLayerCount <= 0) {
        return;
    }
    Mutex::Autolock lock(mLock);
    const auto it = mLayers.find(layerId);
    if (it == mLayers.end()) return;
    LayerInfo& layer = *it->second;
    const nsecs_t now = systemTime(SYSTEM_TIME_MONOTONIC);

    if (layer.mGfrActive && layer.mGfrRegistered && mGfrMonitor != nullptr) {
        const nsecs_t period = mVsyncPeriod;
        mGfrMonitor->updateFrameDropWindow(layerId,
                                           countDroppedFrames(now, period, layer.mVsyncAnchorTime));
    }
    layer.mFenceFd = -1;
    layer.mVsyncAnchorTime = now;
    layer.mVsyncFrameCount =
            queueDepthAfterLatch(layer.queueDepth(), pendingCount, now - layer.mLastQueueTime);
    layer.mBounds = bounds;
    layer.mFocused = focused;
    layer.mVisible = visible;

    if (focused && layer.mUid != mFocusedUid) {
        mFocusedUid = layer.mUid;
        postSceneCheck();
        PerfProxy::VLOGD(kLayerLogTag, "Focused app changed: uid %d, [%s]", layer.mUid,
                         name.c_str());
    }
    const auto app = mAppInfoMap.find(layer.mUid);
    if (app != mAppInfoMap.end()) app->second.lastUsed = now;

    PHRMonitor* phr = mPhrMonitor.load(std::memory_order_relaxed);
    if (layer.mayControlHeadroom() && layer.mPhrRegistered && phr != nullptr &&
        layer.mFpsMode == mDisplayFpsMode) {
        phr->onBufferDecrement(layerId, pendingCount, now);
    }
}

void LayerManager::onVsync(nsecs_t now) {
    if (!mTrackingEnabled) return;

    // Pairs with the publication of a monitor that has just been started.
    PHRMonitor* phr = mPhrMonitor.load(std::memory_order_acquire);
    if (phr != nullptr) phr->onVsync(now);

    nsecs_t last = mLastPeriodicCleanup.load(std::memory_order_relaxed);
    if (last > 0 && now - last < kPeriodicCleanupInterval) return;
    // Several displays may deliver vsyncs at once; one of them does the work.
    if (!mLastPeriodicCleanup.compare_exchange_strong(last, now, std::memory_order_relaxed)) return;
    if (last <= 0) return;

    cleanupInactiveLayers(now);
    cleanupCandidates(now);
    if (!mMultiLayerCheckPending && mScheduledReports == 0) checkMultiLayer(now);
}

void LayerManager::setVsyncPeriod(nsecs_t periodNs) {
    if (periodNs == mVsyncPeriod) return;

    const int mode = PerfProxy::setVsyncMode(periodNs);
    // The lock keeps a monitor that is just being started from missing this period.
    Mutex::Autolock lock(mLock);
    mDisplayFpsMode = mode;
    mVsyncPeriod = periodNs;
    if (mode == 0) {
        __android_log_print(ANDROID_LOG_ERROR, kLayerLogTag, "Unexpected vsync received: %lld",
                            static_cast<long long>(periodNs));
        return;
    }
    if (mGfrMonitor != nullptr) mGfrMonitor->setVsyncInfo(periodNs, mode);
    PHRMonitor* phr = mPhrMonitor.load(std::memory_order_relaxed);
    if (phr != nullptr) phr->setVsyncInfo(periodNs, mode);
    PerfProxy::VLOGD(kLayerLogTag, "vsync: %lld", static_cast<long long>(periodNs));
}

void LayerManager::unblockPendingBuffer() {
    if (!mTrackingEnabled || !mActvStable || mLayerCount == 0) {
        return;
    }
    Mutex::Autolock lock(mLock);
    PHRMonitor* phr = mPhrMonitor.load(std::memory_order_relaxed);
    if (phr == nullptr) return;
    for (const auto& [id, layer] : mLayers) {
        if (layer->mActive && layer->mayControlHeadroom() && layer->mPhrRegistered) {
            phr->unblockBuffer(id);
        }
    }
}

}  // namespace android
