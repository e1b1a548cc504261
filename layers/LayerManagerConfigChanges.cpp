// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <android/log.h>

#include <cmath>
#include <cstdlib>

#include "features/FeatureManager.h"
#include "gfr/GFRMonitor.h"
#include "layers/LayerInfo.h"
#include "layers/LayerManager.h"
#include "layers/LayerRules.h"
#include "layers/LogTag.h"
#include "perf/PerfProxy.h"
#include "phr/PHRMonitor.h"
#include "phr/RefreshRateClass.h"

namespace android {
namespace {

// Applications that came to share the screen need this long to settle.
constexpr nsecs_t kConcurrencyReportDelay = 3'000'000'000;

// A change of a headroom rate by so many hundredths of a period is not worth restarting the
// adaptation.
constexpr long long kMaxIgnoredHeadroomRateChange = 1;

// The service counts rates in hundredths, and so they are compared: as fractions, steps of one
// hundredth differ by a little more or less than 0.01.
bool differs(float rate, float otherRate) {
    const auto hundredths = [](float value) { return std::llround(value * 100.0f); };
    return std::llabs(hundredths(rate) - hundredths(otherRate)) > kMaxIgnoredHeadroomRateChange;
}

}  // namespace

void LayerManager::onFeatureConfigChanged(Feature feature, const std::string& pkgName) {
    if (!mInitialized) {
        __android_log_print(ANDROID_LOG_ERROR, kLayerLogTag, "LayerManager not initialized");
        return;
    }
    const FeatureManager* features = FeatureManager::getInstance();
    switch (feature) {
        case QUICK_TOUCH:
            onHeadroomRatesChanged(pkgName);
            break;
        case FRAME_RESCUE:
            onGfrTunablesChanged(pkgName);
            break;
        case TARGET_FPS:
            onTargetFpsChanged(pkgName);
            break;
        case CPU_BIG_JANK: {
            Mutex::Autolock lock(mLock);
            mCpuBigJankThreshold = features->getCpuBigJankThresholdMs();
            PerfProxy::VLOGD(kLayerLogTag,
                             "OnFeatureConfigChanged - CPU_BIG_JANK: mCpuBigJankThreshold=%dms",
                             mCpuBigJankThreshold);
            break;
        }
        case ACTV_NON_GAME_RESUME: {
            Mutex::Autolock lock(mLock);
            mCheckedAliveApp = features->getCheckingAliveApp();
            mAliveCheckMisses = 0;
            PerfProxy::VLOGD(kLayerLogTag,
                             "OnFeatureConfigChanged - ACTV_NON_GAME_RESUME: checkingAliveApp=%s",
                             mCheckedAliveApp.c_str());
            break;
        }
        case ACTV_IF_CONCURRENCY:
            scheduleNotifyUserScene(kConcurrencyReportDelay);
            PerfProxy::VLOGD(kLayerLogTag, "OnFeatureConfigChanged - ACTV_IF_CONCURRENCY");
            break;
        case ACTV_SWITCHING: {
            // Read and stored in one: of two callbacks at once, the older value must not stay.
            Mutex::Autolock lock(mLock);
            const bool stable = features->isActvStable();
            mActvStable = stable;
            PerfProxy::VLOGD(kLayerLogTag,
                             "OnFeatureConfigChanged - ACTV_SWITCHING: mActvStable=%s",
                             stable ? "true" : "false");
            break;
        }
        default:
            __android_log_print(ANDROID_LOG_ERROR, kLayerLogTag, "Unknown feature");
            break;
    }
}

std::vector<sp<LayerInfo>> LayerManager::layersOfAppLocked(const std::string& pkgName) const {
    std::vector<sp<LayerInfo>> selected;
    if (pkgName.empty() && mLowLatencyPid < 1) return selected;
    for (sp<LayerInfo>& layer : layersByIdLocked()) {
        const bool concerned =
                pkgName.empty() ? layer->mPid == mLowLatencyPid : layer->mPackageName == pkgName;
        if (concerned) selected.push_back(std::move(layer));
    }
    return selected;
}

void LayerManager::onHeadroomRatesChanged(const std::string& pkgName) {
    Mutex::Autolock lock(mLock);
    PHRMonitor* phr = mPhrMonitor.load(std::memory_order_relaxed);
    const bool highFps = isHighRefreshRate(mDisplayFpsMode);
    for (const sp<LayerInfo>& layer : layersOfAppLocked(pkgName)) {
        if (!layer->mIsGame) continue;
        const auto config = FeatureManager::getInstance()->getPhrConfig(layer->mPackageName, true);
        layer->mQuickTouchActive = config.has_value();
        if (config) {
            const bool changed =
                    highFps ? differs(config->highFpsPhrMinRate, layer->highFpsPhrMinRate)
                            : differs(config->phrMinRate, layer->phrMinRate);
            if (changed) setHeadroomRatesLocked(*layer, *config);
        } else if (layer->mPhrRegistered && phr != nullptr) {
            phr->setQuickTouchStatus(layer->mId, false);
        }
        PerfProxy::VLOGD(kLayerLogTag,
                         "OnFeatureConfigChanged - QUICK_TOUCH: set enabled=%d, phrMinRate=%.2f, "
                         "highFpsPhrMinRate=%.2f, pkgName=%s",
                         layer->mayControlHeadroom(), layer->phrMinRate, layer->highFpsPhrMinRate,
                         layer->mPackageName.c_str());
    }
}

void LayerManager::setHeadroomRatesLocked(LayerInfo& layer, const PhrConfig& config) {
    layer.phrMinRate = config.phrMinRate;
    layer.highFpsPhrMinRate = config.highFpsPhrMinRate;
    PHRMonitor* phr = mPhrMonitor.load(std::memory_order_relaxed);
    if (layer.mPhrRegistered && phr != nullptr) {
        phr->updateHeadRoom(layer.mId, layer.phrMinRate, layer.highFpsPhrMinRate);
    }
}

void LayerManager::onGfrTunablesChanged(const std::string& pkgName) {
    // No look at the number of layers before the lock: one that is being promoted there may have
    // read the tunables before they came.
    Mutex::Autolock lock(mLock);
    bool logged = false;
    for (const sp<LayerInfo>& layer : layersOfAppLocked(pkgName)) {
        if (!mayRescueFrames(layer->mPackageName, layer->mSceneTag)) continue;
        applyGfrTunablesLocked(*layer);
        if (!logged) {
            PerfProxy::VLOGD(kLayerLogTag,
                             "OnFeatureConfigChanged - FRAME_RESCUE: gfrEnabled=%d, pkgName=%s",
                             layer->mGfrAllowed, layer->mPackageName.c_str());
            logged = true;
        }
    }
}

void LayerManager::applyGfrTunablesLocked(LayerInfo& layer) {
    const bool atMonitor = layer.mGfrRegistered && mGfrMonitor != nullptr;
    const auto tunables = FeatureManager::getInstance()->getGFRTunables(layer.mPackageName, true);
    if (layer.mGfrAllowed != tunables.has_value()) {
        layer.mGfrAllowed = tunables.has_value();
        layer.mGfrActive = false;
        if (atMonitor) mGfrMonitor->setGFRActive(layer.mId, false);
    }
    if (tunables && atMonitor) mGfrMonitor->updateLayerTunables(layer.mId, *tunables);
}

void LayerManager::onTargetFpsChanged(const std::string& pkgName) {
    Mutex::Autolock lock(mLock);
    if (!mTargetFpsEnabled) return;
    bool logged = false;
    for (const sp<LayerInfo>& layer : layersOfAppLocked(pkgName)) {
        if (!layer->mIsGame) continue;
        applyTargetFpsLocked(*layer);
        if (!logged) {
            PerfProxy::VLOGD(kLayerLogTag,
                             "OnFeatureConfigChanged - TARGET_FPS: targetFps=%.2f, pkgName=%s",
                             layer->targetFps(), layer->mPackageName.c_str());
            logged = true;
        }
    }
}

void LayerManager::applyTargetFpsLocked(LayerInfo& layer) {
    const auto config = FeatureManager::getInstance()->getTfpsConfig(layer.mPackageName, true);
    const float targetFps = config ? config->targetFps : 0.0f;
    if (targetFps == layer.targetFps()) return;
    layer.mGfrQueueEndValue = targetFps;
    const bool pace = targetFps > 0.0f && layer.mFps > targetFps;
    PHRMonitor* phr = mPhrMonitor.load(std::memory_order_relaxed);
    if (layer.mPhrRegistered && phr != nullptr && (layer.isPaced() || pace)) {
        layer.mGfrQueueEndValid = pace;
        phr->setTargetFpsStatus(layer.mId, pace, layer.mFps, targetFps);
    }
}

void LayerManager::applyGameConfigsLocked(LayerInfo& layer) {
    // Until now it had no headroom rates: whatever there is differs from none.
    const auto rates = FeatureManager::getInstance()->getPhrConfig(layer.mPackageName, true);
    layer.mQuickTouchActive = rates.has_value();
    if (rates) setHeadroomRatesLocked(layer, *rates);
    if (mayRescueFrames(layer.mPackageName, layer.mSceneTag)) applyGfrTunablesLocked(layer);
    applyTargetFpsLocked(layer);
}

}  // namespace android
