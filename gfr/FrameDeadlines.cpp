// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "gfr/FrameDeadlines.h"

#include <algorithm>

#include "base/SaturatingCast.h"

namespace android {
namespace {

constexpr float kNsPerSecond = 1e9f;

// An adjusted level-0 check leaves a frame at least this part of its period before it counts as
// late; sooner would boost frames that are about to finish by themselves.
constexpr float kMinL0DelayPeriods = 0.8f;

nsecs_t periods(float count, nsecs_t periodNs) {
    return saturatingCast<nsecs_t>(count * static_cast<float>(periodNs));
}

}  // namespace

void FrameDeadlines::update(nsecs_t vsyncPeriod, float newFps, const GfrTunables& tunables,
                            float resendVariation, bool force) {
    const nsecs_t period =
            newFps > kFpsTolerance ? saturatingCast<nsecs_t>(kNsPerSecond / newFps) : vsyncPeriod;
    if (!force && (period < 1 || period == periodNs)) return;

    fps = newFps;
    periodNs = period;
    resendThresholdNs = periods(resendVariation, period);
    jankDeadlinesNs.resize(tunables.jankThresholds.size());
    std::transform(tunables.jankThresholds.begin(), tunables.jankThresholds.end(),
                   jankDeadlinesNs.begin(),
                   [period](float threshold) { return periods(threshold, period); });
    minL0DelayNs = periods(kMinL0DelayPeriods, period);
    goldenNs = periods(tunables.golden, period);
}

nsecs_t FrameDeadlines::adjustedL0DelayNs(nsecs_t frameDeadline, nsecs_t queueEndTime) const {
    const nsecs_t checkTime = saturatingAdd(jankDeadlinesNs[0], queueEndTime);
    if (saturatingSub(frameDeadline, checkTime) >= goldenNs) return 0;
    const nsecs_t budget = saturatingSub(frameDeadline, queueEndTime);
    return std::max(saturatingSub(budget, goldenNs), minL0DelayNs);
}

nsecs_t FrameDeadlines::checkDelayNs(int level, nsecs_t now, nsecs_t queueEndTime,
                                     nsecs_t l0DelayNs) const {
    nsecs_t delay;
    if (level == 0) {
        const nsecs_t fromQueueEnd = l0DelayNs > 0 ? l0DelayNs : jankDeadlinesNs[0];
        delay = saturatingSub(saturatingAdd(queueEndTime, fromQueueEnd), now);
    } else {
        const size_t index = static_cast<size_t>(level);
        delay = saturatingSub(jankDeadlinesNs[index], jankDeadlinesNs[index - 1]);
    }
    return std::max<nsecs_t>(delay, 0);
}

}  // namespace android
