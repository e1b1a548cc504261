// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <string.h>

#include <utility>

#include "features/FeatureLog.h"
#include "features/FeatureManager.h"
#include "perf/PerfProxy.h"

namespace android {

namespace {

// Numbers of the service's callback.
constexpr int kHintTargetFps = 4171;
constexpr int kHintHeadroomRates = 4187;
constexpr int kHintFrameRescue = 4189;
constexpr int kHintActivity = 4192;

// Kinds of the activity hint.
constexpr int kActivityNonGameResume = 0;
constexpr int kActivityConcurrency = 1;
constexpr int kActivitySwitching = 2;

// Event to the service: a package that is still alive resumes.
constexpr int kEventResume = 4099;

// The thermal service limits whatever runs, so its rate is for every package.
constexpr const char* kThermalCaller = "hx-core-thermalCallbackHandler";
constexpr const char* kAllPackages = "";

// std::string::find is quadratic for some texts; both of these come from outside.
bool contains(const std::string& text, const std::string& part) {
    return part.empty() || memmem(text.data(), text.size(), part.data(), part.size()) != nullptr;
}

}  // namespace

void FeatureManager::setCallbackHintValue(int hintId, const std::string& pkgName, int arg1,
                                          int arg2, const std::vector<int>& values) {
    switch (hintId) {
        case kHintTargetFps: {
            std::string key = pkgName;
            float targetFps = fromHundredths(arg1);
            if (PerfProxy::isNumericString(pkgName)) {
                key = kAllPackages;
                targetFps = std::stof(pkgName);
            } else if (pkgName == kThermalCaller) {
                key = kAllPackages;
            }
            if (setTargetFps(key, targetFps)) {
                notifyConfigChanged(TARGET_FPS, key);
            }
            break;
        }
        case kHintHeadroomRates:
            setPhrMinRate(pkgName, values);
            notifyConfigChanged(QUICK_TOUCH, pkgName);
            break;
        case kHintFrameRescue:
            if (const auto changedPkg = setGFRProp(pkgName, values)) {
                notifyConfigChanged(FRAME_RESCUE, *changedPkg);
            }
            break;
        case kHintActivity:
            setActivity(pkgName, arg1, arg2);
            break;
        default:
            break;
    }
}

void FeatureManager::setActivity(const std::string& pkgName, int kind, int state) {
    switch (kind) {
        case kActivityNonGameResume:
            setCheckingAliveApp(pkgName);
            notifyConfigChanged(ACTV_NON_GAME_RESUME, pkgName);
            break;
        case kActivityConcurrency:
            notifyConfigChanged(ACTV_IF_CONCURRENCY, pkgName);
            break;
        case kActivitySwitching:
            mActvStable = state == 0;
            notifyConfigChanged(ACTV_SWITCHING, pkgName);
            break;
        default:
            break;
    }
}

void FeatureManager::setPhrMinRate(const std::string& pkgName, const std::vector<int>& values) {
    if (!isFeatureEnabled(QUICK_TOUCH)) {
        PerfProxy::VLOGD(kFeatureLogTag, "set PhrMinRate fail, Quick Touch disable!");
        return;
    }
    mConfigs.setPhrMinRate(pkgName, values);
}

std::optional<TfpsConfig> FeatureManager::getTfpsConfig(const std::string& pkgName,
                                                        bool useGlobal) const {
    if (!isFeatureEnabled(TARGET_FPS)) return std::nullopt;
    return mConfigs.getTfpsConfig(pkgName, useGlobal);
}

std::optional<PhrConfig> FeatureManager::getPhrConfig(const std::string& pkgName,
                                                      bool useGlobal) const {
    if (!isFeatureEnabled(QUICK_TOUCH)) return std::nullopt;
    return mConfigs.getPhrConfig(pkgName, useGlobal);
}

void FeatureManager::processAliveAppCheck(std::string aliveApps) {
    std::string checkingApp;
    {
        // Taken and cleared in one step, so that a check that starts meanwhile is not lost.
        Mutex::Autolock lock(mCheckingAliveAppMutex);
        checkingApp.swap(mCheckingAliveApp);
    }
    if (contains(aliveApps, checkingApp)) {
        PerfProxy::VLOGD(kFeatureLogTag,
                         "The checked app is still alive, trigger its resume logic");
        mPerfProxy->postEvent(kEventResume, std::move(checkingApp), {});
    } else {
        PerfProxy::VLOGD(kFeatureLogTag, "The checked app is no longer alive. Cancel check");
    }
}

void FeatureManager::setCheckingAliveApp(const std::string& pkgName) {
    Mutex::Autolock lock(mCheckingAliveAppMutex);
    mCheckingAliveApp = pkgName;
}

std::string FeatureManager::getCheckingAliveApp() const {
    Mutex::Autolock lock(mCheckingAliveAppMutex);
    return mCheckingAliveApp;
}

void FeatureManager::notifyConfigChanged(Feature feature, const std::string& pkgName) const {
    ConfigObserver* observer = mObserver.load();
    if (observer != nullptr) observer->onFeatureConfigChanged(feature, pkgName);
}

}  // namespace android
