// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

namespace android {

// Switches and notification kinds. The values are fixed: the service's callback path and the log
// lines carry them as numbers.
enum Feature : int {
    DEBUG = 0,                 // debug logging of this library
    CORVANE = 1,               // master switch
    QUICK_TOUCH = 2,           // headroom control
    FRAME_RESCUE = 3,          // GPU frame rescue
    TARGET_FPS = 4,            // target-FPS pacing
    CPU_BIG_JANK = 5,          // CPU big-jank detection
    ACTV_NON_GAME_RESUME = 6,  // notification only: a non-game application resumed
    ACTV_IF_CONCURRENCY = 7,   // notification only: several applications at once
    ACTV_SWITCHING = 8,        // notification only: activities are switching, or stable again
    GPU_JANK_DETECT = 9,       // GPU jank detection
};

}  // namespace android
