// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

#include "features/Feature.h"

namespace android {

// Whoever acts on configurations: the layer registry, which is built on them.
class ConfigObserver {
  public:
    // A configuration or notification arrived, on a binder thread or a property watcher's. Called
    // with no lock held. The empty package means all of them.
    virtual void onFeatureConfigChanged(Feature feature, const std::string& pkgName) = 0;

  protected:
    ~ConfigObserver() = default;
};

}  // namespace android
