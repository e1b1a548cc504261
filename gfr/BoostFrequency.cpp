// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "gfr/BoostFrequency.h"

#include <algorithm>

#include "base/SaturatingCast.h"

namespace android {
namespace {

// A boost below this is not worth asking for: the GPU idles no lower.
constexpr int32_t kMinBoostMHz = 100;

// The most that a boost may ask for, whatever the tunables say; also the top of their defaults.
constexpr int32_t kMaxBoostMHz = 3000;

// Drop history: a layer that dropped a frame within the last 16 is janky now, and one that dropped
// 3 within the whole window is janky in general. Both together earn the large increase, one of them
// the small.
constexpr int kRecentSlots = 16;
constexpr int kFrequentDrops = 3;

}  // namespace

BoostDecision calculateFrequencyByTTD(const FrameDeadlines& deadlines, const GfrTunables& tunables,
                                      nsecs_t ttdNs, int32_t baseMHz) {
    const nsecs_t golden = deadlines.goldenNs;
    if (golden <= 0 || deadlines.periodNs <= 0) return {baseMHz, BOOST_INVALID_BUDGET};

    const nsecs_t twiceGolden = saturatingMul<nsecs_t>(golden, 2);
    if (ttdNs > twiceGolden) {
        if (tunables.lowerBoost) return {0, BOOST_SKIPPED_FAR};
        return {baseMHz, BOOST_BASE_FAR};
    }

    // The part of the budget of two goldens that is used up drives the boost: base with all of it
    // left, (1 + kFactor) x base with one golden left, (1 + 2 x kFactor) x base with none.
    const float used = static_cast<float>(saturatingSub(twiceGolden, ttdNs));
    const float gain = tunables.kFactor * used / static_cast<float>(golden) + 1.0f;
    const int32_t freq = saturatingCast<int32_t>(gain * static_cast<float>(baseMHz));
    return {std::max(freq, 0), ttdNs > golden ? BOOST_RAMP_FAR : BOOST_RAMP_NEAR};
}

BoostDecision enhancedFreqByFrameDropWindow(const FrameDropWindow& dropWindow, int32_t freqMHz) {
    const bool recently = dropWindow.dropsAmong(kRecentSlots) > 0;
    const bool frequently = dropWindow.dropsAmong(FrameDropWindow::kSlots) >= kFrequentDrops;
    if (recently && frequently) return {saturatingAdd(freqMHz, freqMHz >> 1), BOOST_HISTORY_MANY};
    if (recently || frequently) return {saturatingAdd(freqMHz, freqMHz >> 2), BOOST_HISTORY_SOME};
    return {freqMHz, 0};
}

std::optional<BoostDecision> decideBoost(const BoostInputs& in) {
    if (!in.deadlines.hasLevel(in.level)) return std::nullopt;

    uint32_t flags = 0;
    if (in.level == 0 && in.l0DelayNs > 0) flags |= BOOST_L0_ADJUSTED;
    // The last level and a missed deadline ask for all that the configuration grants: history,
    // floor and cap are for estimates only.
    if (!in.deadlines.hasLevel(in.level + 1)) return {{in.baseMHz, flags | BOOST_LAST_LEVEL}};
    if (in.ttdNs < 0) {
        return {{std::max(in.lastBoostMHz, in.baseMHz), flags | BOOST_DEADLINE_PASSED}};
    }

    BoostDecision decision =
            calculateFrequencyByTTD(in.deadlines, in.tunables, in.ttdNs, in.baseMHz);
    flags |= decision.flags;
    if (in.tunables.histJank) {
        decision = enhancedFreqByFrameDropWindow(in.dropWindow, decision.freqMHz);
        flags |= decision.flags;
    }
    int32_t freqMHz = decision.freqMHz;
    if (freqMHz < kMinBoostMHz) {
        freqMHz = 0;
        flags |= BOOST_BELOW_FLOOR;
    }
    // After the floor: the tunables may hold a negative cap, which lies below no boost at all.
    if (freqMHz > in.maxFreqMHz) {
        freqMHz = in.maxFreqMHz;
        flags |= BOOST_CAPPED;
    }
    return {{freqMHz, flags}};
}

int32_t maxBoostMHz(const GfrTunables& tunables) {
    return tunables.baseFreq.empty() ? kMaxBoostMHz
                                     : std::min(tunables.baseFreq.back(), kMaxBoostMHz);
}

}  // namespace android
