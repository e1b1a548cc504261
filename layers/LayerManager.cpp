// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "layers/LayerManager.h"

namespace android {

LayerManager* LayerManager::getInstance() {
    static std::atomic<LayerManager*> sInstance{nullptr};
    LayerManager* instance = sInstance.load(std::memory_order_acquire);
    if (instance != nullptr) return instance;

    // Never destroyed: binder and watcher threads come here even while the process exits.
    static Mutex& sInstanceLock = *new Mutex;
    Mutex::Autolock lock(sInstanceLock);
    instance = sInstance.load(std::memory_order_relaxed);
    if (instance == nullptr) {
        instance = new LayerManager();
        sInstance.store(instance, std::memory_order_release);
    }
    return instance;
}

LayerManager::LayerManager() = default;

void LayerManager::setSmartTouchEnable(bool enable) {
    mSmartTouchEnable.store(enable, std::memory_order_relaxed);
}

}  // namespace android
