// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <android/log.h>

#include "layers/LayerManager.h"
#include "layers/LogTag.h"

namespace android {

void LayerManager::onFeatureConfigChanged(Feature, const std::string&) {
    if (!mInitialized.load()) {
        __android_log_print(ANDROID_LOG_ERROR, kLayerLogTag, "LayerManager not initialized");
        return;
    }
}

}  // namespace android
