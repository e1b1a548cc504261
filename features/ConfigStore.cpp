// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "features/ConfigStore.h"

#include <android/log.h>
#include <utils/Timers.h>

#include <algorithm>
#include <utility>

#include "features/FeatureLog.h"
#include "features/GfrTunablesParser.h"
#include "perf/PerfProxy.h"

namespace android {

namespace {

// The name under which a configuration for every package is stored.
constexpr const char* kAllPackages = "";

// More packages than are ever on the screen together; the service repeats what it wants kept.
constexpr size_t kMaxPackages = 4;

constexpr float kMaxTargetFps = 240.0f;

constexpr int32_t kMaxGfrFlag = 2;

template <typename Config>
std::optional<Config> findConfig(const std::map<std::string, Config>& configs,
                                 const std::string& pkgName, bool useGlobal) {
    auto config = configs.find(pkgName);
    if (config == configs.end() && useGlobal) {
        config = configs.find(kAllPackages);
    }
    if (config == configs.end()) {
        return std::nullopt;
    }
    return config->second;
}

const char* boolName(bool value) {
    return value ? "true" : "false";
}

// The log lines always show three values; an absent one is shown as 0.
template <typename Value>
Value valueAt(const std::vector<Value>& values, size_t index) {
    return index < values.size() ? values[index] : Value{};
}

}  // namespace

template <typename ConfigMap>
void ConfigStore::preClearConfigLocked(ConfigMap& configs, const std::string& pkgName,
                                       Feature feature) {
    if (pkgName.empty()) {
        configs.clear();
        return;
    }
    configs.erase(kAllPackages);
    configs.erase(pkgName);
    if (configs.size() < kMaxPackages) {
        return;
    }
    const auto oldest =
            std::min_element(configs.begin(), configs.end(), [](const auto& a, const auto& b) {
                return a.second.updateTime < b.second.updateTime;
            });
    PerfProxy::VLOGD(kFeatureLogTag, "Feature(%d) LRU remove [%s]", feature, oldest->first.c_str());
    configs.erase(oldest);
}

bool ConfigStore::setTargetFps(const std::string& pkgName, float targetFps) {
    if (targetFps < 0.0f || targetFps > kMaxTargetFps) {
        __android_log_print(ANDROID_LOG_ERROR, kFeatureLogTag, "Invalid target fps found: %.2f",
                            targetFps);
        return false;
    }
    {
        Mutex::Autolock lock(mTfpsMutex);
        preClearConfigLocked(mTfpsConfigs, pkgName, TARGET_FPS);
        // Not-a-number gets here; like 0 it only removes the entry.
        if (targetFps > 0.0f) {
            mTfpsConfigs[pkgName] = {targetFps, systemTime(SYSTEM_TIME_MONOTONIC)};
        }
    }
    PerfProxy::VLOGD(kFeatureLogTag, "pkg = %s, targetFps = %f", pkgName.c_str(), targetFps);
    return true;
}

void ConfigStore::setPhrMinRate(const std::string& pkgName, const std::vector<int>& values) {
    const float phrMinRate = fromHundredths(valueAt(values, 1));
    const float highFpsPhrMinRate = fromHundredths(valueAt(values, 3));
    {
        Mutex::Autolock lock(mPhrMutex);
        preClearConfigLocked(mPhrConfigs, pkgName, QUICK_TOUCH);
        if (phrMinRate > 0.0f || highFpsPhrMinRate > 0.0f) {
            mPhrConfigs[pkgName] = {phrMinRate, highFpsPhrMinRate,
                                    systemTime(SYSTEM_TIME_MONOTONIC)};
        }
    }
    PerfProxy::VLOGD(kFeatureLogTag, "pkg=%s, phrMinRate=%f, highFpsPhrMinRate=%f", pkgName.c_str(),
                     phrMinRate, highFpsPhrMinRate);
}

std::optional<std::string> ConfigStore::setGFRProp(const std::string& pkgText,
                                                   const std::vector<int>& values) {
    if (values.empty()) {
        return std::nullopt;
    }
    const int32_t flag = values[0];
    if (flag < 0 || flag > kMaxGfrFlag) {
        __android_log_print(ANDROID_LOG_ERROR, kFeatureLogTag, "Invalid gfrFlag: %d", flag);
        return std::nullopt;
    }
    const size_t colon = pkgText.find(':');
    const bool hasPackage = colon != std::string::npos;
    const std::string pkgName = hasPackage ? pkgText.substr(0, colon) : kAllPackages;
    const std::string text = hasPackage ? pkgText.substr(colon + 1) : pkgText;

    if (flag == 0) {
        Mutex::Autolock lock(mGfrMutex);
        preClearConfigLocked(mGfrTunables, pkgName, FRAME_RESCUE);
        return pkgName;
    }

    GfrTunables tunables = getGFRTunables(pkgName, false).value_or(GfrTunables{});
    tunables.flag = flag;
    const bool applied = pkgName.empty() ? applyGlobalJankThresholds(text, &tunables)
                                         : applyPackageTunables(pkgName, text, &tunables);
    if (!applied) {
        return std::nullopt;
    }
    Mutex::Autolock lock(mGfrMutex);
    preClearConfigLocked(mGfrTunables, pkgName, FRAME_RESCUE);
    tunables.updateTime = systemTime(SYSTEM_TIME_MONOTONIC);
    mGfrTunables[pkgName] = std::move(tunables);
    return pkgName;
}

bool ConfigStore::applyGlobalJankThresholds(const std::string& text, GfrTunables* tunables) {
    if (const auto error = parseGlobalJankThresholds(text, &tunables->jankThresholds)) {
        __android_log_print(ANDROID_LOG_ERROR, kFeatureLogTag, "%s", error->c_str());
        return false;
    }
    const std::vector<float>& thresholds = tunables->jankThresholds;
    PerfProxy::VLOGD(kFeatureLogTag, "pkg=%s GFRProp: flag=%d jankThresholds=%.2f;%.2f;%.2f",
                     kAllPackages, tunables->flag, valueAt(thresholds, 0), valueAt(thresholds, 1),
                     valueAt(thresholds, 2));
    return true;
}

bool ConfigStore::applyPackageTunables(const std::string& pkgName, const std::string& text,
                                       GfrTunables* tunables) {
    if (!parseGFRTunables(text, tunables)) {
        __android_log_print(ANDROID_LOG_ERROR, kFeatureLogTag, "Invalid GFR tunables: %s",
                            text.c_str());
        return false;
    }
    const std::vector<int32_t>& freqs = tunables->baseFreq;
    const std::vector<float>& thresholds = tunables->jankThresholds;
    PerfProxy::VLOGD(kFeatureLogTag,
                     "pkg=%s GFRProp: flag=%d dynamic=%s lowerBoost=%s golden=%.2fvsync "
                     "kFactor=%.2f baseFreq=%d;%d;%d jankThresholds=%.2f;%.2f;%.2f entries",
                     pkgName.c_str(), tunables->flag, boolName(tunables->dynamic),
                     boolName(tunables->lowerBoost), tunables->golden, tunables->kFactor,
                     valueAt(freqs, 0), valueAt(freqs, 1), valueAt(freqs, 2),
                     valueAt(thresholds, 0), valueAt(thresholds, 1), valueAt(thresholds, 2));
    return true;
}

bool ConfigStore::parseGFRTunables(const std::string& text, GfrTunables* out) {
    if (out == nullptr) {
        return false;
    }
    if (const auto error = parseGfrTunables(text, out)) {
        __android_log_print(ANDROID_LOG_ERROR, kFeatureLogTag, "%s", error->c_str());
        return false;
    }
    return true;
}

std::optional<TfpsConfig> ConfigStore::getTfpsConfig(const std::string& pkgName,
                                                     bool useGlobal) const {
    Mutex::Autolock lock(mTfpsMutex);
    return findConfig(mTfpsConfigs, pkgName, useGlobal);
}

std::optional<PhrConfig> ConfigStore::getPhrConfig(const std::string& pkgName,
                                                   bool useGlobal) const {
    Mutex::Autolock lock(mPhrMutex);
    return findConfig(mPhrConfigs, pkgName, useGlobal);
}

std::optional<GfrTunables> ConfigStore::getGFRTunables(const std::string& pkgName,
                                                       bool useGlobal) const {
    Mutex::Autolock lock(mGfrMutex);
    return findConfig(mGfrTunables, pkgName, useGlobal);
}

bool ConfigStore::isTfpsConfigured() const {
    Mutex::Autolock lock(mTfpsMutex);
    return !mTfpsConfigs.empty();
}

}  // namespace android
