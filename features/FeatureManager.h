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
#include "features/Feature.h"
#include "features/GfrTunables.h"
#include "features/PackageConfigs.h"

namespace android {

class PerfProxy;

// Holder of the feature switches, read once from the system properties, and of the per-package
// configurations that the performance service pushes at run time.
//
// One instance per process, created on first use and never destroyed. Switches are written only by
// the constructor and read without a lock; each configuration map has a mutex of its own, held only
// while the map is used, never two at once and never while the layer registry is called.
// Configurations are written on binder threads and read on the compositor's. All locks and their
// order: docs/architecture.md.
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

    // Whether any target rate is stored, for a package or for all.
    bool isTfpsConfigured() const;

    // Entry of the service's callback, on a binder thread. Stores the value, then notifies the
    // layer registry with no lock held. Throws the standard conversion exceptions for a numeric
    // package text that does not fit a float; nothing is stored then.
    void setCallbackHintValue(int hintId, const std::string& pkgName, int arg1, int arg2,
                              const std::vector<int>& values);

    // The callback's operations, one per kind of configuration. None of them notifies.
    // Frames per second; 0 removes the package's rate. False when the rate is out of range.
    bool setTargetFps(const std::string& pkgName, float targetFps);
    // Pairs of a number that is ignored and a rate in percent: up to 60 Hz, then above 60 Hz.
    void setPhrMinRate(const std::string& pkgName, const std::vector<int>& values);
    // `pkgText` is "package:tunables", or jank thresholds alone for all packages; values[0] is the
    // rescue flag. Returns the package whose configuration changed.
    std::optional<std::string> setGFRProp(const std::string& pkgText,
                                          const std::vector<int>& values);
    // Applies a tunables text to `*out`. When the text is refused, logs why and leaves `*out`
    // alone.
    static bool parseGFRTunables(const std::string& text, GfrTunables* out);

    // The package's configuration, or with useGlobal the one for every package. Copies.
    std::optional<TfpsConfig> getTfpsConfig(const std::string& pkgName, bool useGlobal) const;
    std::optional<PhrConfig> getPhrConfig(const std::string& pkgName, bool useGlobal) const;
    std::optional<GfrTunables> getGFRTunables(const std::string& pkgName, bool useGlobal) const;

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
    static bool applyGlobalJankThresholds(const std::string& text, GfrTunables* tunables);
    static bool applyPackageTunables(const std::string& pkgName, const std::string& text,
                                     GfrTunables* tunables);

    // Makes room for a new configuration of `pkgName` in one of the maps: drops the global entry
    // and the package's own, and the oldest when the map is still full. The empty name drops all.
    // The map's mutex must be held; passing the guarded map by reference lets the analysis check
    // that.
    template <typename ConfigMap>
    void preClearConfigLocked(ConfigMap& configs, const std::string& pkgName, Feature feature);

    // Tells the layer registry, which takes its own locks.
    void notifyConfigChanged(Feature feature, const std::string& pkgName) const
            EXCLUDES(mTfpsMutex, mPhrMutex, mGfrMutex, mCheckingAliveAppMutex);

    // Properties watched at run time, and the feature whose configuration each one changes.
    const std::map<std::string, Feature> mPropertyFeatureMap;
    PerfProxy* const mPerfProxy;

    // The package name is the key; the empty one stands for every package.
    mutable Mutex mTfpsMutex;
    std::map<std::string, TfpsConfig> mTfpsConfigs GUARDED_BY(mTfpsMutex);
    mutable Mutex mPhrMutex;
    std::map<std::string, PhrConfig> mPhrConfigs GUARDED_BY(mPhrMutex);
    mutable Mutex mGfrMutex;
    std::map<std::string, GfrTunables> mGfrTunables GUARDED_BY(mGfrMutex);

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
