// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "layers/FrameTiming.h"

#include <algorithm>
#include <limits>

#include "base/SaturatingCast.h"

namespace android {
namespace {

// Longer than two threads need to deliver events that belong together.
constexpr nsecs_t kEventSkew = 2'000'001;

}  // namespace

nsecs_t predictTimeToPresent(nsecs_t now, nsecs_t period, nsecs_t anchor, int32_t queued) {
    const bool phaseKnown = period >= 1 && anchor >= 1;
    // A buffer that was queued just before the latch was recorded is negative in phase.
    const nsecs_t toNext = phaseKnown ? saturatingSub(period, (now - anchor) % period) : period;
    return saturatingAdd(toNext, saturatingMul(period, static_cast<nsecs_t>(queued)));
}

int32_t countDroppedFrames(nsecs_t now, nsecs_t period, nsecs_t anchor) {
    if (period < 1 || anchor < 1) return 0;
    // Rounded to whole periods, less the one that a frame is expected to take.
    const nsecs_t periods = saturatingAdd(now - anchor, period / 2) / period;
    const nsecs_t dropped = std::max<nsecs_t>(1, periods) - 1;
    return static_cast<int32_t>(std::min<nsecs_t>(dropped, std::numeric_limits<int32_t>::max()));
}

int32_t queueDepthAfterLatch(int32_t depth, int32_t pendingCount, nsecs_t sinceQueue) {
    if (depth < 1) return pendingCount;
    if (depth - 1 != pendingCount && sinceQueue >= kEventSkew) return pendingCount;
    return depth - 1;
}

bool isYoungerThan(nsecs_t now, nsecs_t start, float periods, nsecs_t period) {
    return now - start < saturatingCast<nsecs_t>(periods * static_cast<float>(period));
}

}  // namespace android
