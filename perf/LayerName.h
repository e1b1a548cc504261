// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <string_view>

namespace android {

// Applications that run mini-games in surface views of their own, and the scene tag of these.
inline constexpr char kVideoPackage[] = "com.ss.android.ugc.aweme";
inline constexpr char kMessengerPackage[] = "com.tencent.mm";
inline constexpr char kMiniGameSceneTag[] = "minigame";

// Which layer names belong to what is defined by two regular expressions (ECMAScript, ASCII
// classes) that match the whole name:
//
//   surface view   (?:\w*\s*SurfaceView\[)([^/]+).*#\d+    group 1 is the package
//   keyboard       InputMethod#\d+
//
// Each function has its expression's result after one linear pass. A backtracking matcher may not
// be given such a name: it takes seconds on 20,000 characters that an application chose, and its
// stack on 200,000.
std::optional<std::string_view> scanSurfaceViewName(std::string_view name);
bool scanInputMethodName(std::string_view name);

}  // namespace android
