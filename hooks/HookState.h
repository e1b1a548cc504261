// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "base/Relaxed.h"

namespace android {

// The hook module's switches, one copy per process. Hooks read them without a lock while
// corvaneInit(), aCorvaneAppInit() or a watcher thread may store them.
inline Relaxed<bool> sEnabled{false};               // the library's master switch
inline Relaxed<bool> sTargetFpsEnabled{false};      // target-FPS pacing
inline Relaxed<bool> sGpuJankDetectEnabled{false};  // GPU-jank detection
inline Relaxed<bool> sPhrEnabled{false};      // headroom control or pacing: their monitor is wanted
inline Relaxed<bool> sSmartTouch{false};      // "ST"; watched, changes at run time
inline Relaxed<bool> sSmartTouchMove{false};  // "STM", in applications; watched as well
inline Relaxed<bool> sSmartTouchTrace{false};  // extra debug logging of smart touch

inline constexpr char kSmartTouchProperty[] = "debug.vendor.perf.smart_touch";
inline constexpr char kSmartTouchMoveProperty[] = "debug.vendor.perf.smart_touch.move";
inline constexpr char kSmartTouchTraceProperty[] = "debug.vendor.perf.smart_touch.trace";

inline constexpr char kHookLogTag[] = "Corvane";

}  // namespace android
