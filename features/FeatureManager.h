// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "features/Feature.h"
#include "features/GfrTunables.h"
#include "features/PackageConfigs.h"

namespace android {

// Holder of the feature switches, read once from the system properties, and of the per-package
// configurations that the performance service pushes at run time.
//
// One instance per process, created on first use and never destroyed. Switches are written only by
// the constructor and read without a lock; each configuration map has a mutex of its own.
class FeatureManager {
  public:
    static FeatureManager* getInstance();

    // Fixed for the process's life. FRAME_RESCUE is always on; a notification kind never is.
    bool isFeatureEnabled(Feature feature) const;

    float getDefaultMaxHeadroomRate(bool highFps) const;
    int getCpuBigJankThresholdMs() const;
    float getFrameResendVariation() const;
    float getGpuMinExecTimeMult() const;
    int getTargetFpsSwitchTime() const;  // seconds; -1 while TARGET_FPS is off
    bool isTargetFpsCompensate() const;
    bool isPHRDynamicEnabled() const;

    // Whether any target rate is stored, for a package or for all.
    bool isTfpsConfigured() const;

    // Entry of the service's callback, on a binder thread. Stores the value, then notifies the layer
    // registry with no lock held. Throws the standard conversion exceptions for a numeric package
    // text that does not fit a float; nothing is stored then.
    void setCallbackHintValue(int hintId, const std::string& pkgName, int arg1, int arg2,
                              const std::vector<int>& values);

    // The package's configuration, or with useGlobal the one for every package. Copies.
    std::optional<TfpsConfig> getTfpsConfig(const std::string& pkgName, bool useGlobal) const;
    std::optional<PhrConfig> getPhrConfig(const std::string& pkgName, bool useGlobal) const;
    std::optional<GfrTunables> getGFRTunables(const std::string& pkgName, bool useGlobal) const;

    // Ends the alive check: resumes the checked application when `aliveApps` names it.
    void processAliveAppCheck(std::string aliveApps);

    std::string getCheckingAliveApp() const;
    bool isActvStable() const;

  private:
    FeatureManager();
};

}  // namespace android
