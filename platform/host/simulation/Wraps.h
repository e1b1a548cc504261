// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <time.h>

#include <cstdint>
#include <limits>

#include "Scheduler.h"

// What the wraps share. A function __wrap_NAME is called in place of NAME by everything that links
// host_wraps; this library does not, so that its NAME is the real one. Each wrap costs one relaxed
// load while no simulation is on.

#define CORVANE_WRAP extern "C" __attribute__((visibility("default")))
#define CORVANE_CALLER __builtin_return_address(0)

namespace corvane::host {

constexpr int64_t kNsPerSecond = 1'000'000'000;

inline bool isValid(const timespec& time) {
    return time.tv_sec >= 0 && time.tv_nsec >= 0 && time.tv_nsec < kNsPerSecond;
}

// Saturates, too: a wait without limit is one until the end of time.
inline int64_t toNs(const timespec& time) {
    return time.tv_sec >= kNever / kNsPerSecond ? kNever
                                                : time.tv_sec * kNsPerSecond + time.tv_nsec;
}

inline timespec toTimespec(int64_t ns) {
    return {static_cast<time_t>(ns / kNsPerSecond), static_cast<long>(ns % kNsPerSecond)};
}

// The simulated date: it runs with the monotonic clock, from the same day in every run.
constexpr int64_t kRealTimeOffsetNs = 1'700'000'000 * kNsPerSecond;

// A deadline on this clock, on the simulation's.
inline int64_t toSimulated(clockid_t clock, const timespec& deadline) {
    const int64_t ns = toNs(deadline);
    if (ns == kNever) return kNever;
    return clock == CLOCK_REALTIME ? ns - kRealTimeOffsetNs : ns;
}

}  // namespace corvane::host
