// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "layers/LayerInfo.h"
#include "layers/LayerManager.h"
#include "layers/LogTag.h"
#include "perf/PerfProxy.h"

namespace android {
namespace {

// Service event: the highest mode of all layers.
constexpr int kFpsModeEvent = 4196;

void sendFpsMode(const std::string& packageName, int mode) {
    PerfProxy::getInstance()->postEvent(kFpsModeEvent, packageName, {0, mode});
}

}  // namespace

void LayerManager::onFpsModeChangedLocked() {
    const LayerInfo* fastest = nullptr;
    for (const auto& [id, layer] : mLayers) {
        if (layer->mFpsMode < 0) continue;
        if (fastest == nullptr || layer->mFpsMode > fastest->mFpsMode ||
            (layer->mFpsMode == fastest->mFpsMode && layer->mId < fastest->mId)) {
            fastest = layer.get();
        }
    }
    if (fastest != nullptr) {
        mFpsModeLayerId = fastest->mId;
        mMaxFpsMode = fastest->mFpsMode;
        sendFpsMode(fastest->mPackageName, mMaxFpsMode);
        PerfProxy::VLOGD(kLayerLogTag, "Update MaxInfo: pkgName %s mode: %d layerId: %d",
                         fastest->mPackageName.c_str(), mMaxFpsMode, mFpsModeLayerId);
    } else if (mMaxFpsMode != -1) {
        mMaxFpsMode = -1;
        mFpsModeLayerId = -1;
        sendFpsMode("null", -1);
        PerfProxy::VLOGD(kLayerLogTag, "Update MaxInfo: Reset to default");
    }
}

}  // namespace android
