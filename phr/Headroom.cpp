// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "phr/Headroom.h"

#include <algorithm>

#include "base/SaturatingCast.h"

namespace android {

namespace {

// Distance that a preset headroom keeps from a vsync: the latch itself takes about this long.
constexpr nsecs_t kPresetVsyncGuardNs = 1'500'000;

// A stepped headroom keeps a tenth of a period from each vsync.
constexpr nsecs_t kSnapDivisor = 10;

}  // namespace

nsecs_t headroomAtRate(float rate, nsecs_t period) {
    return saturatingCast<nsecs_t>(rate * static_cast<float>(period));
}

HeadroomRange deriveHeadroomRange(float rate, float maxRate, nsecs_t period) {
    nsecs_t headroom = headroomAtRate(rate, period);
    const nsecs_t pastVsync = headroom % period;
    const nsecs_t toVsync = saturatingSub(period, pastVsync);
    if (pastVsync < kPresetVsyncGuardNs) {
        headroom = saturatingAdd(headroom, saturatingSub(kPresetVsyncGuardNs, pastVsync));
    } else if (toVsync < kPresetVsyncGuardNs) {
        headroom -= kPresetVsyncGuardNs - toVsync;
    }
    return {headroom, std::max(headroom, headroomAtRate(maxRate, period))};
}

nsecs_t avoidVsync(nsecs_t candidate, nsecs_t period, bool decrease) {
    const nsecs_t guard = period / kSnapDivisor;
    const nsecs_t pastVsync = candidate % period;
    const bool justPast = pastVsync < guard;
    if (!justPast && period - pastVsync >= guard) return candidate;
    // The multiple of the period that the candidate is too close to.
    const nsecs_t vsync = saturatingAdd(candidate - pastVsync, justPast ? 0 : period);
    return decrease ? saturatingSub(vsync, guard) : saturatingAdd(vsync, guard);
}

std::optional<nsecs_t> stepHeadroom(nsecs_t headroom, HeadroomRange range, nsecs_t period,
                                    bool decrease, nsecs_t step) {
    if (headroom == (decrease ? range.preset : range.max)) return std::nullopt;

    nsecs_t candidate = decrease ? saturatingSub(headroom, step) : saturatingAdd(headroom, step);
    if (decrease && candidate <= range.preset) return range.preset;
    if (!decrease && candidate >= range.max) return range.max;

    candidate = avoidVsync(candidate, period, decrease);
    return candidate >= range.preset ? std::min(candidate, range.max) : range.preset;
}

nsecs_t currentHeadroom(nsecs_t lastLatchTime, nsecs_t time, nsecs_t period, int32_t pendingCount) {
    return saturatingAdd(saturatingSub(lastLatchTime, time),
                         saturatingMul(period, nsecs_t{pendingCount} + 1));
}

nsecs_t vsyncToHeadroomPoint(nsecs_t headroom, nsecs_t period) {
    return saturatingSub(period, headroom % period);
}

}  // namespace android
