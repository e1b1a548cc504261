// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <utils/Mutex.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "features/Feature.h"
#include "features/GfrTunables.h"
#include "features/PackageConfigs.h"

namespace android {

// The latest configurations of a few packages, one map for each kind. The empty package stands for
// every package: setting it replaces what single ones have, and setting one of these replaces it.
// A full map drops the package that was set longest ago.
//
// Written on binder threads and read on the compositor's. Each map has a mutex of its own, held
// only while the map is used and never two at once.
class ConfigStore {
  public:
    // Frames per second; 0 removes the package's rate. False when the rate is out of range.
    bool setTargetFps(const std::string& pkgName, float targetFps) EXCLUDES(mTfpsMutex);
    // Pairs of a number that is ignored and a rate in percent: up to 60 Hz, then above 60 Hz.
    void setPhrMinRate(const std::string& pkgName, const std::vector<int>& values)
            EXCLUDES(mPhrMutex);
    // `pkgText` is "package:tunables", or jank thresholds alone for all packages; values[0] is the
    // rescue flag. Returns the package whose configuration changed.
    std::optional<std::string> setGFRProp(const std::string& pkgText,
                                          const std::vector<int>& values) EXCLUDES(mGfrMutex);
    // Applies a tunables text to `*out`. When the text is refused, logs why and leaves `*out`
    // alone.
    static bool parseGFRTunables(const std::string& text, GfrTunables* out);

    // The package's configuration, or with useGlobal the one for every package. Copies.
    std::optional<TfpsConfig> getTfpsConfig(const std::string& pkgName, bool useGlobal) const
            EXCLUDES(mTfpsMutex);
    std::optional<PhrConfig> getPhrConfig(const std::string& pkgName, bool useGlobal) const
            EXCLUDES(mPhrMutex);
    std::optional<GfrTunables> getGFRTunables(const std::string& pkgName, bool useGlobal) const
            EXCLUDES(mGfrMutex);

    // Whether any target rate is stored, for a package or for all.
    bool isTfpsConfigured() const EXCLUDES(mTfpsMutex);

  private:
    static bool applyGlobalJankThresholds(const std::string& text, GfrTunables* tunables);
    static bool applyPackageTunables(const std::string& pkgName, const std::string& text,
                                     GfrTunables* tunables);

    // Makes room for a new configuration of `pkgName` in one of the maps: drops the global entry
    // and the package's own, and the oldest when the map is still full. The empty name drops all.
    // The map's mutex must be held; passing the guarded map by reference lets the analysis check
    // that.
    template <typename ConfigMap>
    void preClearConfigLocked(ConfigMap& configs, const std::string& pkgName, Feature feature);

    mutable Mutex mTfpsMutex;
    std::map<std::string, TfpsConfig> mTfpsConfigs GUARDED_BY(mTfpsMutex);
    mutable Mutex mPhrMutex;
    std::map<std::string, PhrConfig> mPhrConfigs GUARDED_BY(mPhrMutex);
    mutable Mutex mGfrMutex;
    std::map<std::string, GfrTunables> mGfrTunables GUARDED_BY(mGfrMutex);
};

}  // namespace android
