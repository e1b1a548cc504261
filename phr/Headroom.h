// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <utils/Timers.h>

#include <cstdint>
#include <optional>

namespace android {

// The arithmetic of headroom: how long a buffer is released before the vsync that shows it.
//
// A headroom may span several vsync periods. A buffer that is released right at a vsync makes that
// vsync's latch or misses it by chance, so every headroom keeps clear of the multiples of the
// period. All periods here must be positive.

// The bounds within which a layer's headroom moves.
struct HeadroomRange {
    nsecs_t preset;  // the lowest
    nsecs_t max;
};

// The integer part of `rate` periods, in single precision.
nsecs_t headroomAtRate(float rate, nsecs_t period);

// The bounds from the layer's rate and the display's highest one, both in periods.
HeadroomRange deriveHeadroomRange(float rate, float maxRate, nsecs_t period);

// A candidate that is closer to a vsync than a tenth of a period moves on, in its direction of
// travel, until it is that far from the vsync.
nsecs_t avoidVsync(nsecs_t candidate, nsecs_t period, bool decrease);

// The headroom after one step towards an end of its range; none when it is there already.
std::optional<nsecs_t> stepHeadroom(nsecs_t headroom, HeadroomRange range, nsecs_t period,
                                    bool decrease, nsecs_t step);

// The time from `time` to the vsync that will show a buffer queued behind `pendingCount` others.
nsecs_t currentHeadroom(nsecs_t lastLatchTime, nsecs_t time, nsecs_t period, int32_t pendingCount);

// The time from a vsync to the headroom point of the next one. A headroom that is not known yet
// (-1) lies just past the next vsync.
nsecs_t vsyncToHeadroomPoint(nsecs_t headroom, nsecs_t period);

}  // namespace android
