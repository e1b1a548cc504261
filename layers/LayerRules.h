// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

#include "perf/LayerName.h"

namespace android {

// The messenger's own frames need no rescue, those of its mini-games do.
inline bool mayRescueFrames(const std::string& packageName, const std::string& sceneTag) {
    return packageName != kMessengerPackage || sceneTag == kMiniGameSceneTag;
}

}  // namespace android
