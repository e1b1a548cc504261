// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <utils/Mutex.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/Relaxed.h"
#include "features/ConfigObserver.h"
#include "features/ConfigStore.h"
#include "features/Feature.h"

namespace android {

class PerfProxy;

// The feature switches, read once from the system properties, and the way of what the performance
// service pushes at run time: into the store of configurations, then to the observer.
//
// One instance per process, created on first use and never destroyed. Switches are written only by
// the constructor and read without a lock. Configurations are written on binder threads and read on
// the compositor's; no lock is held while the observer is called. All locks and their order:
// docs/architecture.md.
class FeatureManager {
  public:
    static FeatureManager* getInstance();

    // Fixed for the process's life. FRAME_RESCUE is always on; a notification kind never is.
    bool isFeatureEnabled(Feature feature) const;

    // Fraction of the vsync period that headroom may reach for a package without a rate of its own.
    float getDefaultMaxHeadroomRate(bool highFps) const;
    // Below 1: off.
    int getCpuBigJankThresholdMs() const { return mCpuBigJankThresholdMs.load(); }
    // Fraction of the vsync period, in (0, 1); 0 while CORVANE is off.
    float getFrameResendVariation() const { return mFrameResendVariation; }
    // Above 0.
    float getGpuMinExecTimeMult() const { return mGpuMinExecTimeMult; }
    // Length of the ramp to a target rate in queued frames, below 1 for none; -1 while TARGET_FPS
    // is off. The log line that shows it says "seconds", which its readers know it by.
    int getTargetFpsSwitchTime() const { return mTargetFpsSwitchTime; }
    bool isTargetFpsCompensate() const { return mTargetFpsCompensate; }
    bool isPHRDynamicEnabled() const { return mPHRDynamicEnable; }

    // Who is told of changed configurations; null for nobody. It must outlive all callbacks.
    void setConfigObserver(ConfigObserver* observer) { mObserver.store(observer); }

    // Whether any target rate is stored, for a package or for all.
    bool isTfpsConfigured() const { return mConfigs.isTfpsConfigured(); }

    // Entry of the service's callback, on a binder thread. Stores the value, then notifies the
    // observer with no lock held. Throws the standard conversion exceptions for a numeric
    // package text that does not fit a float; nothing is stored then.
    void setCallbackHintValue(int hintId, const std::string& pkgName, int arg1, int arg2,
                              const std::vector<int>& values);

    // The callback's operations, one per kind of configuration, and the way back to what they
    // stored; see ConfigStore. None of them notifies. What is of a feature that is off is not read
    // back, and headroom rates are then not stored either.
    bool setTargetFps(const std::string& pkgName, float targetFps) {
        return mConfigs.setTargetFps(pkgName, targetFps);
    }
    void setPhrMinRate(const std::string& pkgName, const std::vector<int>& values);
    std::optional<std::string> setGFRProp(const std::string& pkgText,
                                          const std::vector<int>& values) {
        return mConfigs.setGFRProp(pkgText, values);
    }
    static bool parseGFRTunables(const std::string& text, GfrTunables* out) {
        return ConfigStore::parseGFRTunables(text, out);
    }
    std::optional<TfpsConfig> getTfpsConfig(const std::string& pkgName, bool useGlobal) const;
    std::optional<PhrConfig> getPhrConfig(const std::string& pkgName, bool useGlobal) const;
    std::optional<GfrTunables> getGFRTunables(const std::string& pkgName, bool useGlobal) const {
        return mConfigs.getGFRTunables(pkgName, useGlobal);
    }

    // Ends the alive check: resumes the checked application when `aliveApps` names it.
    void processAliveAppCheck(std::string aliveApps);

    std::string getCheckingAliveApp() const;
    bool isActvStable() const { return mActvStable; }

    // Starts a detached thread that calls onPropChanged whenever the property changes. Throws
    // std::system_error when the thread cannot be created.
    void propertyMonitor(const std::string& name);
    void onPropChanged(const std::string& name);

  private:
    // Milliseconds; watched at run time.
    static constexpr const char* kCpuBigJankThresholdProperty =
            "debug.perf.cpu_big_jank_threshold_ms";

    FeatureManager();

    std::string readProperty(const char* name, const char* defaultValue) const;
    bool readSwitch(const char* name, const char* defaultValue) const;
    void readTargetFpsProperties();
    void readFrameResendVariation();
    void readGpuJankProperties();
    void readCpuBigJankProperties();

    void setCheckingAliveApp(const std::string& pkgName);
    void setActivity(const std::string& pkgName, int kind, int state);
    void notifyConfigChanged(Feature feature, const std::string& pkgName) const
            EXCLUDES(mCheckingAliveAppMutex);

    // Properties watched at run time, and the feature whose configuration each one changes.
    const std::map<std::string, Feature> mPropertyFeatureMap;
    PerfProxy* const mPerfProxy;

    ConfigStore mConfigs;
    // Sequentially consistent, as the threshold: who sets the observer and then reads the threshold
    // either reads a change or is told of it.
    std::atomic<ConfigObserver*> mObserver{nullptr};

    // The package whose resume is awaited; empty when none. Never held while calling out.
    mutable Mutex mCheckingAliveAppMutex;
    std::string mCheckingAliveApp GUARDED_BY(mCheckingAliveAppMutex);
    Relaxed<bool> mActvStable{true};

    bool mDebug = false;
    bool mEnable = true;
    bool mTargetFpsEnable = false;
    bool mTargetFpsCompensate = false;
    int32_t mTargetFpsSwitchTime = -1;  // queued frames
    bool mPHREnable = false;
    bool mPHRDynamicEnable = false;
    float mFrameResendVariation = 0.0f;
    float mGpuMinExecTimeMult = 1.0f;
    bool mGpuJankDetect = false;
    bool mCpuBigJankDetect = false;
    // The one value here that changes after construction: the property's watcher writes it.
    std::atomic<int32_t> mCpuBigJankThresholdMs{0};
};

}  // namespace android
