// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <utils/Timers.h>

#include <array>
#include <cstddef>
#include <cstdint>

#include "model/CountedValues.h"

namespace corvane::replay {

// The exported hooks that a replay calls, in the order in which a report lists them.
enum class Hook : size_t {
    kInit,
    kSetVsyncPeriod,
    kTrackVsyncSignal,
    kTrackBufferIncrement,
    kTrackBufferDecrement,
    kUnblockPendingBuffer,
    kNotifyGpuFenceUnsignaled,
    kTrackLatchUnsignaledGpuFence,
    kFlushLatchUnsignaledGpuFences,
    kSmartTouchEnabled,
    kIsTargetFpsActive,
    kAppInit,
    kAppSmartTouchActive,
    kAppQueueBuffer,
    kAppSetTouchEvent,
    kAppSetVsyncTime,
    kAppFilterBuffer,
    kAppConsumeInputNow,
    kCount,
};

const char* hookName(Hook hook);

// Median, 99th percentile and maximum of a set of values, by the nearest-rank rule; all 0 when
// empty.
struct Spread {
    size_t count = 0;
    int64_t p50 = 0;
    int64_t p99 = 0;
    int64_t max = 0;
};
Spread spreadOf(const model::CountedValues& values);

// What each hook call cost, waits inside the hook included. Not synchronised: every thread fills
// one of its own, and they are merged when the threads have ended.
class HookCosts {
  public:
    // Runs `call` and books its cost to `hook`; returns the cost in ns.
    template <typename Call>
    int64_t measure(Hook hook, Call call) {
        const nsecs_t begin = systemTime(SYSTEM_TIME_MONOTONIC);
        call();
        const int64_t cost = systemTime(SYSTEM_TIME_MONOTONIC) - begin;
        mCosts[static_cast<size_t>(hook)].add(cost);
        return cost;
    }

    void merge(const HookCosts& other);
    Spread spread(Hook hook) const { return spreadOf(mCosts[static_cast<size_t>(hook)]); }

  private:
    std::array<model::CountedValues, static_cast<size_t>(Hook::kCount)> mCosts;
};

}  // namespace corvane::replay
