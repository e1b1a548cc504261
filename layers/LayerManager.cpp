// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "layers/LayerManager.h"

#include "base/Singleton.h"
#include "features/FeatureManager.h"
#include "gfr/GFRMonitor.h"
#include "layers/LayerInfo.h"
#include "layers/LogTag.h"
#include "perf/PerfProxy.h"
#include "phr/PHRMonitor.h"

namespace android {

LayerManager* LayerManager::getInstance() {
    static std::atomic<LayerManager*> sInstance{nullptr};
    return instanceOnFirstUse<LayerManager>(sInstance, [] { return new LayerManager(); });
}

LayerManager::LayerManager() = default;

LayerManager::~LayerManager() {
    FeatureManager::getInstance()->setConfigObserver(nullptr);
    stop();
    PerfProxy::VLOGD(kLayerLogTag, "~LayerManager");
}

void LayerManager::init(bool smartTouchEnable, int arg0, int arg1) {
    Mutex::Autolock lock(mLock);
    if (mInitialized) return;

    // Before anything is read: a change that comes now waits for the lock and is applied then.
    mInitialized = true;
    FeatureManager* features = FeatureManager::getInstance();
    features->setConfigObserver(this);
    setSmartTouchEnable(smartTouchEnable);
    if (features->isFeatureEnabled(CPU_BIG_JANK)) {
        mCpuBigJankThreshold = features->getCpuBigJankThresholdMs();
    }
    mInitArg0 = arg0;
    mInitArg1 = arg1;
    mTargetFpsEnabled = features->isFeatureEnabled(TARGET_FPS);
    mTargetFpsCompensate = features->isTargetFpsCompensate();
    const bool gpuJankDetect = features->isFeatureEnabled(GPU_JANK_DETECT);
    mGpuJankDetect = gpuJankDetect;
    if (gpuJankDetect) mGpuMinExecTimeMult = features->getGpuMinExecTimeMult();
    PerfProxy::VLOGD(kLayerLogTag, "LayerManager initialized");
}

void LayerManager::stop() {
    if (!mInitialized.exchange(false)) return;

    // Whoever is starting a monitor right now does so under the lock; whoever comes later sees the
    // registry stopped and starts none.
    GFRMonitor* gfr = nullptr;
    PHRMonitor* phr = nullptr;
    {
        Mutex::Autolock lock(mLock);
        gfr = mGfrMonitor;
        phr = mPhrMonitor.load(std::memory_order_relaxed);
    }
    // Each joins its thread: not under the lock.
    if (gfr != nullptr) gfr->forceStop();
    if (phr != nullptr) phr->forceStop();

    Mutex::Autolock lock(mLock);
    mGfrMonitor = nullptr;
    mPhrMonitor.store(nullptr, std::memory_order_relaxed);
    mGfrInited = false;
    mPhrInited = false;
    mLayerCount = 0;
    mLayers.clear();
    mAppInfoMap.clear();
    mCandidates.clear();
    mLayerLimitReached = false;
    mCandidateLimitReached = false;
}

void LayerManager::setSmartTouchEnable(bool enable) {
    mSmartTouchEnable = enable;
}

}  // namespace android
