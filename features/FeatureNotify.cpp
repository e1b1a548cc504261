// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "features/FeatureManager.h"
#include "layers/LayerManager.h"

namespace android {

// The one place from which the configuration reaches up to the layers, which are built on it.
void FeatureManager::notifyConfigChanged(Feature feature, const std::string& pkgName) const {
    LayerManager::getInstance()->onFeatureConfigChanged(feature, pkgName);
}

}  // namespace android
