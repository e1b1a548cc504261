// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <android-base/properties.h>
#include <android/log.h>
#include <cutils/properties.h>

#include <chrono>
#include <thread>

#include "features/FeatureLog.h"
#include "features/FeatureManager.h"

namespace android {

void FeatureManager::propertyMonitor(const std::string& name) {
    std::thread([this, name] {
        base::CachedProperty property(name.c_str());
        for (;;) {
            property.WaitForChange(std::chrono::milliseconds::max());
            onPropChanged(name);
        }
    }).detach();
}

void FeatureManager::onPropChanged(const std::string& name) {
    if (mDebug) {
        const std::string value = base::GetProperty(name, "0");
        __android_log_print(ANDROID_LOG_DEBUG, kFeatureLogTag, "[Prop Changed: %s: %s]",
                            name.c_str(), value.c_str());
    }
    const auto feature = mPropertyFeatureMap.find(name);
    if (feature == mPropertyFeatureMap.end() || feature->second != CPU_BIG_JANK) {
        return;
    }
    const int32_t thresholdMs = property_get_int32(kCpuBigJankThresholdProperty, 0);
    mCpuBigJankThresholdMs.store(thresholdMs);
    if (thresholdMs < 1) {
        __android_log_print(ANDROID_LOG_ERROR, kFeatureLogTag,
                            "Invalid thresholdMs of cpu_big_jank, disabled");
    } else {
        __android_log_print(ANDROID_LOG_INFO, kFeatureLogTag,
                            "The thresholdMs of cpu_big_jank is %dms", thresholdMs);
    }
    notifyConfigChanged(CPU_BIG_JANK, "");
}

}  // namespace android
