// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

namespace android {

// An application whose own frames need no rescue but that hosts mini-games in surface views.
inline constexpr char kMiniGameHost[] = "com.tencent.mm";
inline constexpr char kMiniGameSceneTag[] = "minigame";

inline bool mayRescueFrames(const std::string& packageName, const std::string& sceneTag) {
    return packageName != kMiniGameHost || sceneTag == kMiniGameSceneTag;
}

}  // namespace android
