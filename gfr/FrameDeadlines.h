// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <utils/Timers.h>

#include <cstdint>
#include <vector>

#include "features/GfrTunables.h"

namespace android {

// In frames per second: rates that differ by no more than this count as equal, and a rate that is
// no higher counts as none.
constexpr float kFpsTolerance = 0.01f;

// The times by which a layer's frames are judged, worked out once per frame period from the
// tunables, which count in periods. Products are taken in float and truncated.
struct FrameDeadlines {
    float fps = 0.0f;               // rate the period was taken from; 0 = the vsync period itself
    nsecs_t periodNs = -1;          // frame period; -1 until one is known
    nsecs_t resendThresholdNs = 0;  // change of frame time that makes a release worth repeating
    nsecs_t minL0DelayNs = 0;       // shortest adjusted delay of the level-0 check
    nsecs_t goldenNs = 0;           // budget that a rescued frame should find left
    std::vector<nsecs_t> jankDeadlinesNs;  // one per level, counted from queue end

    // Recomputes everything for `fps`, or for the vsync period when there is no rate. Without
    // `force` only when the period is a new, positive one. `resendVariation` is in periods.
    void update(nsecs_t vsyncPeriod, float newFps, const GfrTunables& tunables,
                float resendVariation, bool force);

    bool hasLevel(int level) const {
        return level >= 0 && static_cast<size_t>(level) < jankDeadlinesNs.size();
    }

    // Delay of the level-0 check from queue end that still leaves the golden budget before the
    // frame's deadline; 0 when the level's own deadline leaves it anyway. Needs a level 0.
    nsecs_t adjustedL0DelayNs(nsecs_t frameDeadline, nsecs_t queueEndTime) const;

    // Time from `now` to the check of `level`, never negative. Level 0 counts from queue end, by
    // `l0DelayNs` when that is positive; a later level from the check before it, which has just
    // run: its distance is the difference of the two deadlines. Needs that level.
    nsecs_t checkDelayNs(int level, nsecs_t now, nsecs_t queueEndTime, nsecs_t l0DelayNs) const;
};

}  // namespace android
