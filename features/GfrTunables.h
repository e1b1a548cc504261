// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <utils/Timers.h>

#include <cstdint>
#include <vector>

namespace android {

// Frame-rescue tunables of one package, as the performance service sets them.
// Thresholds and the golden budget are in vsync periods, frequencies in MHz.
struct GfrTunables {
    int32_t flag = 0;  // rescue mode, 0 to 2; bit 1 also resends on a changed frame time
    std::vector<float> jankThresholds = {1.3f, 1.6f, 1.9f};  // above 1, strictly increasing
    std::vector<int32_t> baseFreq = {500, 800, 3000};        // one per level, 1 to 3 of them
    bool dynamic = false;     // frequency computed at wake-up instead of the level's base
    bool lowerBoost = false;  // no boost while the deadline is far
    float golden = 0.6f;      // budget that a rescued frame should find left, 0.2 to 1.3
    float kFactor = 1.0f;     // gain of the time-to-deadline rule, 0.5 to 5.0
    bool histJank = false;    // enlarge boosts by the frame-drop history
    nsecs_t updateTime = 0;   // monotonic time of storing; the oldest entry is evicted first
};

}  // namespace android
