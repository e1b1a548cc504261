// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "hooks/PropertyMonitor.h"

#include <android-base/properties.h>
#include <android/log.h>

#include <chrono>
#include <thread>

#include "hooks/GameTracker.h"
#include "hooks/HookState.h"
#include "layers/LayerManager.h"

namespace android {

void propertyMonitor(const std::string& name, bool current, void (*callback)(bool)) {
    std::thread([name, callback, current]() mutable {
        while (true) {
            const char* flipped = current ? "0" : "1";
            if (!base::WaitForProperty(name, flipped, std::chrono::milliseconds::max())) continue;
            current = !current;
            callback(current);
        }
    }).detach();
}

void onSTPropChanged(bool value) {
    sSmartTouch = value;
    if (sSmartTouchTrace) {
        __android_log_print(ANDROID_LOG_DEBUG, kHookLogTag, "[Prop Changed: ST: %d]", value);
    }
    // An application process gets here too; its registry is never initialised and only keeps this.
    LayerManager::getInstance()->setSmartTouchEnable(sPhrEnabled || value);
}

void onSTMPropChanged(bool value) {
    sSmartTouchMove = value;
    if (value) createInGameTracker();
    if (sSmartTouchTrace) {
        __android_log_print(ANDROID_LOG_DEBUG, kHookLogTag, "[Prop Changed: STM: %d]", value);
    }
}

}  // namespace android
