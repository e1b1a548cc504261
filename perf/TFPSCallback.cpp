// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "perf/TFPSCallback.h"

#include <android/log.h>

#include "features/FeatureManager.h"

namespace aidl::vendor::hxw::hardware::perf2 {

::ndk::ScopedAStatus TFPSCallback::notifyCallback(int32_t hintId, const std::string& pkgName,
                                                  int32_t arg1, int32_t arg2,
                                                  const std::vector<int32_t>& values) {
    try {
        if (auto* features = ::android::FeatureManager::getInstance(); features != nullptr) {
            features->setCallbackHintValue(hintId, pkgName, arg1, arg2, values);
        }
    } catch (...) {
        // The whole line, for every exception: those who read these logs know it so.
        __android_log_print(ANDROID_LOG_ERROR, "TFPS_CALLBACK", "TFPS_CALLBACK");
    }
    return ::ndk::ScopedAStatus::ok();
}

}  // namespace aidl::vendor::hxw::hardware::perf2
