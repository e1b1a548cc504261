// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <android/log.h>

#include "features/FeatureManager.h"
#include "gfr/GFRMonitor.h"
#include "layers/LayerInfo.h"
#include "layers/LayerManager.h"
#include "layers/LayerRules.h"
#include "layers/LogTag.h"
#include "perf/PerfProxy.h"
#include "phr/PHRMonitor.h"

namespace android {
namespace {

// Pacing that the application falls short of by more than this only adds delay.
constexpr float kPacingSlackFps = 2.0f;

// FPS windows, about a second each. Three windows of other applications: the checked one has gone.
constexpr int32_t kAliveCheckMaxMisses = 3;
// Four of its own: it is drawing again and stays.
constexpr int32_t kAliveCheckMaxMatches = 4;

}  // namespace

void LayerManager::initGFREnv() {
    // A stopped registry must not start a monitor that nobody will stop.
    if (mGfrInited || !mInitialized) return;
    GFRMonitor* gfr = GFRMonitor::getInstance();
    if (!gfr->init()) {
        __android_log_print(ANDROID_LOG_ERROR, kLayerLogTag, "Failed to initialize GFRMonitor");
        return;
    }
    gfr->setVsyncInfo(mVsyncPeriod, mDisplayFpsMode);
    mGfrMonitor = gfr;
    mGfrInited = true;
    PerfProxy::VLOGD(kLayerLogTag, "GFRMonitor initialized");
}

void LayerManager::initPHREnv() {
    if (mPhrInited || !mInitialized) return;
    if (!mSmartTouchEnable && !mTargetFpsEnabled) return;
    PHRMonitor* phr = PHRMonitor::getInstance();
    if (!phr->init()) {
        __android_log_print(ANDROID_LOG_ERROR, kLayerLogTag, "Failed to initialize PHRMonitor");
        return;
    }
    phr->setVsyncInfo(mVsyncPeriod, mDisplayFpsMode);
    // onVsync() takes the pointer without the lock and must find the monitor set up.
    mPhrMonitor.store(phr, std::memory_order_release);
    mPhrInited = true;
    PerfProxy::VLOGD(kLayerLogTag, "PHRMonitor initialized");
}

void LayerManager::loadFeatureConfigsLocked(LayerInfo* layer) {
    const FeatureManager* features = FeatureManager::getInstance();
    const std::string& package = layer->mPackageName;

    layer->mGfrAllowed = features->getGFRTunables(package, layer->mIsGame).has_value() &&
                         mayRescueFrames(package, layer->mSceneTag);
    if (layer->mIsGame) {
        const auto config = features->getPhrConfig(package, true);
        layer->mQuickTouchActive = config.has_value();
        if (config) {
            layer->phrMinRate = config->phrMinRate;
            layer->highFpsPhrMinRate = config->highFpsPhrMinRate;
        }
    }
    const auto config = features->getTfpsConfig(package, layer->mIsGame);
    layer->mGfrQueueEndValue = config ? config->targetFps : 0.0f;
}

void LayerManager::toggleFeaturesOnFpsLocked(LayerInfo& layer, bool on) {
    if (on && layer.mFpsMode != -1 && layer.mVisible) {
        switchFeaturesOnLocked(layer);
    } else {
        switchFeaturesOffLocked(layer);
    }
    stopPacingBelowTargetLocked(layer);
    updateAliveCheckLocked(layer);
}

void LayerManager::switchFeaturesOffLocked(LayerInfo& layer) {
    if (layer.mGfrActive && layer.mGfrRegistered && mGfrMonitor != nullptr) {
        layer.mGfrActive = false;
        mGfrMonitor->setGFRActive(layer.mId, false);
    }
    PHRMonitor* phr = mPhrMonitor.load(std::memory_order_relaxed);
    if (layer.mayControlHeadroom() && layer.mPhrRegistered && phr != nullptr) {
        phr->setQuickTouchStatus(layer.mId, false);
    }
}

void LayerManager::switchFeaturesOnLocked(LayerInfo& layer) {
    if (layer.mGfrAllowed) initGFREnv();
    if (!layer.mGfrActive && layer.mGfrAllowed && mGfrMonitor != nullptr) {
        if (!layer.mGfrRegistered) {
            mGfrMonitor->registerLayer(layer.mId, layer.mName, layer.mPackageName);
            layer.mGfrRegistered = true;
            PerfProxy::VLOGD(kLayerLogTag, "GFR: Registered layer %d [%s]", layer.mId,
                             layer.mName.c_str());
        }
        layer.mGfrActive = true;
        mGfrMonitor->setGFRActive(layer.mId, true);
    }

    const float targetFps = layer.targetFps();
    if (!layer.mayControlHeadroom() && !(targetFps > 0.0f)) return;
    initPHREnv();
    PHRMonitor* phr = mPhrMonitor.load(std::memory_order_relaxed);
    if (phr == nullptr) return;
    if (!layer.mPhrRegistered) {
        phr->registerLayer(layer.mId, layer.mName, layer.phrMinRate, layer.highFpsPhrMinRate);
        layer.mPhrRegistered = true;
        PerfProxy::VLOGD(kLayerLogTag, "PHR: Registered layer %d [%s]", layer.mId,
                         layer.mName.c_str());
    }
    if (!layer.isPaced() && targetFps > 0.0f && layer.mFps > targetFps) {
        layer.mGfrQueueEndValid = true;
        phr->setTargetFpsStatus(layer.mId, true, layer.mFps, targetFps);
    }
}

void LayerManager::stopPacingBelowTargetLocked(LayerInfo& layer) {
    PHRMonitor* phr = mPhrMonitor.load(std::memory_order_relaxed);
    if (phr == nullptr || !mTargetFpsEnabled || !layer.mPhrRegistered || !layer.isPaced()) {
        return;
    }
    const float targetFps = layer.targetFps();
    if (!(layer.mFps < targetFps - kPacingSlackFps)) return;
    // A ramp towards the target passes through any rate.
    if (phr->isTargetFpsSwitching(layer.mId) || !mTargetFpsCompensate) return;
    layer.mGfrQueueEndValid = false;
    phr->setTargetFpsStatus(layer.mId, false, layer.mFps, targetFps);
}

void LayerManager::updateAliveCheckLocked(LayerInfo& layer) {
    if (!isAliveCheckPendingLocked() && layer.mAliveCheckMatches == 0) return;
    if (layer.mPackageName == mCheckedAliveApp) {
        ++layer.mAliveCheckMatches;
        mAliveCheckMisses = kNoAliveCheck;
    } else {
        ++mAliveCheckMisses;
    }
    if (mAliveCheckMisses < kAliveCheckMaxMisses &&
        layer.mAliveCheckMatches < kAliveCheckMaxMatches) {
        return;
    }
    FeatureManager::getInstance()->processAliveAppCheck(layer.mPackageName);
    mAliveCheckMisses = kNoAliveCheck;
    layer.mAliveCheckMatches = 0;
    mCheckedAliveApp.clear();
}

void LayerManager::setLowLatencyAppLocked(LayerInfo* layer) {
    if (layer != nullptr) {
        if (layer->mPid == mLowLatencyPid) return;
        if (layer->mPid >= 1 && layer->mIsGame) {
            mLowLatencyPid = layer->mPid;
            PerfProxy::getInstance()->setLowLatency(mLowLatencyPid, true);
            PerfProxy::VLOGD(kLayerLogTag, "SetLowLatency true for pid=%d", mLowLatencyPid);
            return;
        }
    }
    if (mLowLatencyPid < 1) return;
    PerfProxy::getInstance()->setLowLatency(mLowLatencyPid, false);
    PerfProxy::VLOGD(kLayerLogTag, "SetLowLatency false for pid=%d", mLowLatencyPid);
    mLowLatencyPid = -1;
}

}  // namespace android
