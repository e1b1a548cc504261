// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <android/log.h>

#include <algorithm>
#include <utility>

#include "gfr/GFRMonitor.h"
#include "layers/LayerManager.h"
#include "layers/LayerSelection.h"
#include "layers/LogTag.h"
#include "perf/PerfProxy.h"
#include "phr/PHRMonitor.h"

namespace android {
namespace {

// A layer that has not drawn for so long is no longer animating.
constexpr nsecs_t kInactiveAfter = 1'000'000'000;
// It then gets as long again to come back before its history is dropped.
constexpr nsecs_t kRemovalGrace = 1'000'000'000;

// Candidates are cheap, but each one came from a name that an application can invent at will.
constexpr size_t kMaxCandidates = 10;
// Once the limit is in force, new candidates wait until there is real room again.
constexpr size_t kCandidatesToReopen = 5;
// More than two seconds without a buffer: whatever it was, it is not a frame rate.
constexpr nsecs_t kCandidateSilence = 2'000'000'001;

}  // namespace

sp<LayerInfo> LayerManager::getOrCreateLayer(const std::string& name, int layerId, int pid, int uid,
                                             nsecs_t now) {
    sp<LayerInfo> layer = getLayer(layerId);
    if (layer != nullptr) return layer;

    // An application may have made the name long on purpose: nobody waits for the lock meanwhile.
    std::string packageName = PerfProxy::getPackageName(name);
    bool tooManyCandidates = false;
    bool tooManyLayers = false;
    {
        Mutex::Autolock lock(mLock);
        const auto candidate = mCandidates.find(layerId);
        if (candidate != mCandidates.end()) {
            if (!candidate->second.updateAndCheckPromotion(now) || mLayerLimitReached) {
                return nullptr;
            }
            layer = promoteLocked(name, layerId, pid, uid,
                                  std::move(candidate->second.packageName));
            mCandidates.erase(candidate);
            tooManyLayers = mLayers.size() > kMaxTrackedLayers;
        } else {
            // Another thread may have promoted the layer since the look above.
            const auto promoted = mLayers.find(layerId);
            if (promoted != mLayers.end()) return promoted->second;
            if (mCandidateLimitReached) return nullptr;

            if (packageName.empty()) packageName = cachedPackageLocked(name, uid, now);
            if (packageName.empty()) return nullptr;

            LayerCandidate newCandidate;
            newCandidate.packageName = std::move(packageName);
            newCandidate.updateAndCheckPromotion(now);
            // Before it is added: the eleventh is still let in, the twelfth brings the clean-up.
            tooManyCandidates = mCandidates.size() > kMaxCandidates;
            mCandidates.emplace(layerId, std::move(newCandidate));
            PerfProxy::VLOGD(kLayerLogTag, "Add new candidate layer: %d [%s]", layerId,
                             name.c_str());
        }
    }
    if (layer != nullptr) checkAppInfo(layerId, layer->mPackageName, uid, now);
    if (tooManyCandidates) cleanupCandidates(now);
    if (tooManyLayers) cleanupInactiveLayers(now);
    return layer;
}

sp<LayerInfo> LayerManager::promoteLocked(const std::string& name, int layerId, int pid, int uid,
                                          std::string packageName) {
    LayerInfo::Identity identity;
    identity.id = layerId;
    identity.name = name;
    identity.sceneTag = PerfProxy::getLayerSceneTag(packageName, name);
    identity.packageName = std::move(packageName);
    identity.pid = pid;
    identity.uid = uid;
    sp<LayerInfo> layer = sp<LayerInfo>::make(std::move(identity));
    layer->mActive = true;
    loadFeatureConfigsLocked(layer.get());
    mLayers.emplace(layerId, layer);
    mLayerCount = mLayerCount + 1;
    PerfProxy::VLOGD(kLayerLogTag, "Add new layer to full tracking: [%s] layer %d", name.c_str(),
                     layerId);
    return layer;
}

sp<LayerInfo> LayerManager::getLayer(int layerId) {
    Mutex::Autolock lock(mLock);
    const auto layer = mLayers.find(layerId);
    return layer != mLayers.end() ? layer->second : nullptr;
}

std::vector<sp<LayerInfo>> LayerManager::layersByIdLocked() const {
    std::vector<sp<LayerInfo>> layers;
    layers.reserve(mLayers.size());
    for (const auto& [id, layer] : mLayers) layers.push_back(layer);
    std::sort(layers.begin(), layers.end(),
              [](const sp<LayerInfo>& a, const sp<LayerInfo>& b) { return a->mId < b->mId; });
    return layers;
}

void LayerManager::markInactiveLocked(LayerInfo& layer, nsecs_t now) {
    layer.mActive = false;
    layer.mRemoveDeadline = now + kRemovalGrace;
    PerfProxy::VLOGD(kLayerLogTag, "Layer %d [%s] marked for removal (no frame update within 1s)",
                     layer.mId, layer.mName.c_str());
    switchFeaturesOffLocked(layer);
}

void LayerManager::cleanupInactiveLayers(nsecs_t now) {
    Mutex::Autolock lock(mLock);
    const LayerList layers = layersByIdLocked();
    for (const sp<LayerInfo>& layer : layers) {
        if (layer->mActive && layer->mLastQueueTime >= 1 &&
            now - layer->mLastQueueTime > kInactiveAfter) {
            markInactiveLocked(*layer, now);
        }
    }

    const LayerRemovals removals = selectLayersToRemove(layers, now);
    if (!removals.crowded) {
        const size_t remaining = layers.size() - removals.layers.size();
        if (mLayerLimitReached && remaining + mCandidates.size() <= kMaxTrackedLayers) {
            mLayerLimitReached = false;
            __android_log_print(ANDROID_LOG_INFO, kLayerLogTag,
                                "Active layer count dropped back within the tracking limit.");
        }
    } else if (removals.rankedOut && !mLayerLimitReached) {
        mLayerLimitReached = true;
        __android_log_print(ANDROID_LOG_WARN, kLayerLogTag,
                            "Active layer count reached maximum tracking limit.");
    }
    for (const sp<LayerInfo>& layer : removals.layers) unregisterLayerLocked(*layer);
}

void LayerManager::cleanupCandidates(nsecs_t now) {
    Mutex::Autolock lock(mLock);
    for (auto it = mCandidates.begin(); it != mCandidates.end();) {
        const nsecs_t lastSeen = it->second.lastSeen;
        if (lastSeen >= 1 && now - lastSeen >= kCandidateSilence) {
            PerfProxy::VLOGD(kLayerLogTag, "Remove candidate layer [%d]", it->first);
            it = mCandidates.erase(it);
        } else {
            ++it;
        }
    }

    if (mCandidates.size() <= kMaxCandidates) {
        if (mCandidateLimitReached && mCandidates.size() <= kCandidatesToReopen) {
            mCandidateLimitReached = false;
            __android_log_print(ANDROID_LOG_INFO, kLayerLogTag,
                                "Candidate layer count dropped back within the tracking limit.");
        }
        return;
    }

    std::vector<std::pair<nsecs_t, int32_t>> byLastSeen;
    byLastSeen.reserve(mCandidates.size());
    for (const auto& [id, candidate] : mCandidates) byLastSeen.emplace_back(candidate.lastSeen, id);
    std::sort(byLastSeen.begin(), byLastSeen.end());
    byLastSeen.resize(byLastSeen.size() - kMaxCandidates);
    for (const auto& [lastSeen, id] : byLastSeen) {
        PerfProxy::VLOGD(kLayerLogTag, "Force remove candidate layer [%d]", id);
        mCandidates.erase(id);
    }
    if (!mCandidateLimitReached) {
        mCandidateLimitReached = true;
        __android_log_print(ANDROID_LOG_WARN, kLayerLogTag,
                            "Candidate layer count reached maximum tracking limit.");
    }
}

void LayerManager::unregisterLayerLocked(LayerInfo& layer) {
    if (layer.mGfrRegistered && mGfrMonitor != nullptr) mGfrMonitor->unregisterLayer(layer.mId);
    PHRMonitor* phr = mPhrMonitor.load(std::memory_order_relaxed);
    if (layer.mPhrRegistered && phr != nullptr) phr->unregisterLayer(layer.mId);
    mLayers.erase(layer.mId);
    mLayerCount = mLayerCount - 1;
    if (mFpsModeLayerId == layer.mId) onFpsModeChangedLocked();
    PerfProxy::VLOGD(kLayerLogTag, "Unregistered layer %d: [%s]", layer.mId, layer.mName.c_str());
}

}  // namespace android
