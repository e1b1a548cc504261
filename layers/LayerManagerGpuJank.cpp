// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <android/log.h>
#include <errno.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "layers/FrameTiming.h"
#include "layers/LayerInfo.h"
#include "layers/LayerManager.h"
#include "layers/LogTag.h"
#include "layers/SyncFile.h"
#include "perf/PerfProxy.h"

namespace android {
namespace {

// How the GPU driver names its fences.
constexpr char kGpuTimeline[] = "mdrt-timeline";
// A fence that had signalled before it was wrapped: it tells nothing about its layer's driver.
constexpr char kDetachedFence[] = "detached";

bool hasPrefix(const std::string& text, const char* prefix) {
    return text.rfind(prefix, 0) == 0;
}

void traceTooYoung(const std::string& layerName) {
    PerfProxy::VTRACE_FORMAT("[GPU JANK DETECTION] skip IOCTL: insufficient GPU exec time [%s]",
                             layerName.c_str());
}

void sendDeadline(int fenceFd, const std::string& layerName) {
    PerfProxy::VTRACE_FORMAT("[GPU JANK DETECTION] send IOCTL [%s]", layerName.c_str());
    const int result = setFenceDueNow(fenceFd);
    if (result < 0) {
        const int error = errno;
        __android_log_print(ANDROID_LOG_ERROR, kLayerLogTag,
                            "[GPU JANK DETECTION] IOCTL failed, ret=%d, fd=%d, errno=%d", result,
                            fenceFd, error);
    }
}

}  // namespace

bool LayerManager::checkAndCacheFenceOrigin(LayerInfo& layer, int fenceFd) {
    {
        Mutex::Autolock lock(mLock);
        if (layer.mFenceOrigin != LayerInfo::FENCE_ORIGIN_UNKNOWN) {
            return layer.mFenceOrigin == LayerInfo::FENCE_ORIGIN_GPU;
        }
    }
    std::string fenceName;
    const int result = getFenceName(fenceFd, &fenceName);
    if (result < 0) {
        const int error = errno;
        __android_log_print(ANDROID_LOG_ERROR, kLayerLogTag,
                            "[GPU JANK DETECTION] SYNC_IOC_FILE_INFO failed, ret=%d, fd=%d, "
                            "errno=%d",
                            result, fenceFd, error);
        return true;
    }

    const char* text = "detached (not cached)";
    LayerInfo::FenceOrigin origin = LayerInfo::FENCE_ORIGIN_UNKNOWN;
    if (hasPrefix(fenceName, kGpuTimeline)) {
        text = "mdrt (cached)";
        origin = LayerInfo::FENCE_ORIGIN_GPU;
    } else if (!hasPrefix(fenceName, kDetachedFence)) {
        text = "non-mdrt (cached)";
        origin = LayerInfo::FENCE_ORIGIN_OTHER;
    }
    if (origin != LayerInfo::FENCE_ORIGIN_UNKNOWN) {
        Mutex::Autolock lock(mLock);
        layer.mFenceOrigin = origin;
    }
    __android_log_print(ANDROID_LOG_INFO, kLayerLogTag,
                        "[GPU JANK DETECTION] fence origin: %s, layerId=%d [%s] fence_name=%s",
                        text, layer.mId, layer.mName.c_str(), fenceName.c_str());
    return origin != LayerInfo::FENCE_ORIGIN_OTHER;
}

void LayerManager::notifyGpuFenceUnsignaled(int fenceFd, int layerId) {
    sp<LayerInfo> layer;
    nsecs_t start = 0;
    float minPeriods = 0.0f;
    {
        Mutex::Autolock lock(mLock);
        const auto it = mLayers.find(layerId);
        if (it == mLayers.end()) return;
        layer = it->second;
        layer->mPendingGpuFenceFd = -1;  // supersedes a recorded fence
        start = layer->mFirstFrameTime;
        minPeriods = mGpuMinExecTimeMult;
    }
    if (!checkAndCacheFenceOrigin(*layer, fenceFd)) return;

    const nsecs_t period = mVsyncPeriod;
    if (start == 0 || period < 1) return;
    if (isYoungerThan(systemTime(SYSTEM_TIME_MONOTONIC), start, minPeriods, period)) {
        traceTooYoung(layer->mName);
        return;
    }
    sendDeadline(fenceFd, layer->mName);
}

void LayerManager::trackLatchUnsignaledGpuFence(int fenceFd, int layerId) {
    if (!mGpuJankDetect) return;
    const sp<LayerInfo> layer = getLayer(layerId);
    if (layer == nullptr || !checkAndCacheFenceOrigin(*layer, fenceFd)) return;
    Mutex::Autolock lock(mLock);
    layer->mPendingGpuFenceFd = fenceFd;
}

void LayerManager::flushLatchUnsignaledGpuFences() {
    // Once per composition, mostly with nothing recorded: no copies of the registry then.
    std::vector<std::pair<int, sp<LayerInfo>>> due;
    {
        Mutex::Autolock lock(mLock);
        const bool enabled = mGpuJankDetect;
        const nsecs_t now = systemTime(SYSTEM_TIME_MONOTONIC);
        const nsecs_t period = mVsyncPeriod;
        for (const auto& [id, layer] : mLayers) {
            const int fenceFd = std::exchange(layer->mPendingGpuFenceFd, -1);
            if (fenceFd < 0 || !enabled || period < 1 || layer->mFirstFrameTime < 1) continue;
            if (isYoungerThan(now, layer->mFirstFrameTime, mGpuMinExecTimeMult, period)) {
                traceTooYoung(layer->mName);
            } else {
                due.emplace_back(fenceFd, layer);
            }
        }
    }
    std::sort(due.begin(), due.end(),
              [](const auto& a, const auto& b) { return a.second->mId < b.second->mId; });
    for (const auto& [fenceFd, layer] : due) sendDeadline(fenceFd, layer->mName);
}

}  // namespace android
