// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "features/FeatureManager.h"

#include <android-base/parsebool.h>
#include <android/log.h>
#include <cutils/properties.h>

#include <cmath>
#include <locale>
#include <sstream>
#include <system_error>

#include "base/Singleton.h"
#include "features/FeatureLog.h"
#include "perf/PerfProxy.h"

namespace android {

namespace {

std::atomic<FeatureManager*> sInstance{nullptr};

// Fractions of the vsync period. Above 60 Hz a frame may take more than one of the short periods.
constexpr float kHighFpsMaxHeadroomRate = 1.8f;
constexpr float kMaxHeadroomRate = 0.9f;

constexpr const char* kDefaultFrameResendVariation = "0.2";
constexpr const char* kDefaultGpuMinExecTimeMult = "1.0";

// The number at the beginning of a property's text; 0 when there is none or it does not fit. An
// overflowing extraction would leave the type's limit: years of switch time, say.
template <typename Number>
Number extractNumber(const std::string& text) {
    std::istringstream stream(text);
    stream.imbue(std::locale::classic());
    Number number{};
    return stream >> number ? number : Number{};
}

}  // namespace

FeatureManager* FeatureManager::getInstance() {
    return instanceOnFirstUse<FeatureManager>(sInstance, [] { return new FeatureManager(); });
}

FeatureManager::FeatureManager()
      : mPropertyFeatureMap{{kCpuBigJankThresholdProperty, CPU_BIG_JANK}},
        mPerfProxy(PerfProxy::getInstance()) {
    mDebug = readSwitch("vendor.perf.corvane.debug", "0");
    PerfProxy::setDebuggable(mDebug, readSwitch("vendor.perf.corvane.profile", "0"));

    mEnable = readSwitch("vendor.perf.corvane.enable", "1");
    if (!mEnable) {
        return;
    }

    mPHREnable = readSwitch("vendor.perf.phr.enable", "0");
    if (mPHREnable) {
        mPHRDynamicEnable = readSwitch("vendor.perf.phr.dynamic.enable", "true");
    }
    readTargetFpsProperties();
    readFrameResendVariation();
    readGpuJankProperties();
    // "QuickTouch" is what the readers of this line know the headroom switch by.
    PerfProxy::VLOGD(kFeatureLogTag,
                     "[TFPS:%d][QuickTouch:%d, mPHRDynamicEnable:%d][GpuJankDetect:%d]",
                     mTargetFpsEnable, mPHREnable, mPHRDynamicEnable, mGpuJankDetect);
    readCpuBigJankProperties();
}

std::string FeatureManager::readProperty(const char* name, const char* defaultValue) const {
    return mPerfProxy->perfGetProp(name, defaultValue).value;
}

bool FeatureManager::readSwitch(const char* name, const char* defaultValue) const {
    return base::ParseBool(readProperty(name, defaultValue)) == base::ParseBoolResult::kTrue;
}

void FeatureManager::readTargetFpsProperties() {
    mTargetFpsEnable = readSwitch("vendor.rdxe.enable.target_fps", "false");
    if (!mTargetFpsEnable) {
        return;
    }
    mTargetFpsSwitchTime =
            extractNumber<int32_t>(readProperty("vendor.rdxe.target_fps.switch_time", "0"));
    mTargetFpsCompensate = readSwitch("vendor.rdxe.target_fps.compensate", "true");
    if (mDebug) {
        __android_log_print(ANDROID_LOG_DEBUG, kFeatureLogTag,
                            "Target fps switch time is %d seconds, compensation is %d.",
                            mTargetFpsSwitchTime, mTargetFpsCompensate);
    }
}

void FeatureManager::readFrameResendVariation() {
    const std::string text = readProperty("vendor.perf.game_frame_rescue.headroom_resend_var",
                                          kDefaultFrameResendVariation);
    const float variation = extractNumber<float>(text);
    if (variation > 0.0f && variation < 1.0f) {
        mFrameResendVariation = variation;
        PerfProxy::VLOGD(kFeatureLogTag, "FrameResendVariation: %s", text.c_str());
    } else {
        mFrameResendVariation = extractNumber<float>(kDefaultFrameResendVariation);
        __android_log_print(ANDROID_LOG_ERROR, kFeatureLogTag,
                            "Invalid FrameResendVariation: %s, fall back to %s", text.c_str(),
                            kDefaultFrameResendVariation);
    }
}

void FeatureManager::readGpuJankProperties() {
    mGpuJankDetect = readSwitch("vendor.perf.gpu_jank_detect.enable", "false");
    if (!mGpuJankDetect) {
        return;
    }
    const std::string text = readProperty("vendor.perf.gpu_jank_filter.min_exec_time_mult",
                                          kDefaultGpuMinExecTimeMult);
    const float multiplier = extractNumber<float>(text);
    // Some standard libraries extract "nan" and "inf"; neither is a multiplier.
    if (std::isfinite(multiplier) && multiplier > 0.0f) {
        mGpuMinExecTimeMult = multiplier;
    } else {
        mGpuMinExecTimeMult = extractNumber<float>(kDefaultGpuMinExecTimeMult);
        __android_log_print(ANDROID_LOG_ERROR, kFeatureLogTag,
                            "Invalid GpuMinExecTimeMult: %s, fall back to %s", text.c_str(),
                            kDefaultGpuMinExecTimeMult);
    }
}

void FeatureManager::readCpuBigJankProperties() {
    // A developer's switch, so it does not go through the service.
    mCpuBigJankDetect = property_get_bool("debug.perf.enable_big_jank_detect", false);
    if (!mCpuBigJankDetect) {
        return;
    }
    mCpuBigJankThresholdMs.store(property_get_int32(kCpuBigJankThresholdProperty, 0));
    try {
        propertyMonitor(kCpuBigJankThresholdProperty);
    } catch (const std::system_error& e) {
        // The threshold then stays as it is; that must not take the compositor down.
        __android_log_print(ANDROID_LOG_ERROR, kFeatureLogTag, "Unable to watch %s: %s",
                            kCpuBigJankThresholdProperty, e.what());
    }
}

bool FeatureManager::isFeatureEnabled(Feature feature) const {
    switch (feature) {
        case DEBUG:
            return mDebug;
        case CORVANE:
            return mEnable;
        case QUICK_TOUCH:
            return mPHREnable;
        case FRAME_RESCUE:
            return true;
        case TARGET_FPS:
            return mTargetFpsEnable;
        case CPU_BIG_JANK:
            return mCpuBigJankDetect;
        case GPU_JANK_DETECT:
            return mGpuJankDetect;
        default:
            return false;
    }
}

float FeatureManager::getDefaultMaxHeadroomRate(bool highFps) const {
    return highFps ? kHighFpsMaxHeadroomRate : kMaxHeadroomRate;
}

}  // namespace android
