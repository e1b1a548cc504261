// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The clocks and the sleeps.

#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <optional>

#include "Wraps.h"

namespace corvane::host {
namespace {

std::optional<int64_t> simulatedTime(clockid_t clock) {
    const int64_t now = Scheduler::get().now();
    switch (clock) {
        case CLOCK_MONOTONIC:
        case CLOCK_MONOTONIC_COARSE:
        case CLOCK_MONOTONIC_RAW:
        case CLOCK_BOOTTIME:
            return now;
        case CLOCK_REALTIME:
        case CLOCK_REALTIME_COARSE:
            return addSaturated(now, kRealTimeOffsetNs);
        default:
            return std::nullopt;  // of processors
    }
}

void sleepUntil(int64_t deadline, const void* caller) {
    Scheduler& scheduler = Scheduler::get();
    scheduler.point("sleep", nullptr, caller);
    if (deadline > scheduler.now()) scheduler.block(Wait::kSleep, nullptr, deadline, caller);
}

}  // namespace
}  // namespace corvane::host

using namespace corvane::host;

CORVANE_WRAP int __wrap_clock_gettime(clockid_t clock, timespec* time) {
    if (Scheduler::self() != nullptr) {
        if (const std::optional<int64_t> now = simulatedTime(clock)) {
            *time = toTimespec(*now);
            return 0;
        }
    }
    return clock_gettime(clock, time);
}

#define WRAPPED(name, symbol) name asm("__wrap_" symbol) __attribute__((visibility("default")))
using std::chrono::steady_clock;
using std::chrono::system_clock;

steady_clock::time_point WRAPPED(steadyNow(), "_ZNSt6chrono3_V212steady_clock3nowEv");
system_clock::time_point WRAPPED(systemNow(), "_ZNSt6chrono3_V212system_clock3nowEv");

steady_clock::time_point steadyNow() {
    if (Scheduler::self() == nullptr) return steady_clock::now();
    return steady_clock::time_point(std::chrono::nanoseconds(Scheduler::get().now()));
}

system_clock::time_point systemNow() {
    if (Scheduler::self() == nullptr) return system_clock::now();
    return system_clock::time_point(std::chrono::nanoseconds(*simulatedTime(CLOCK_REALTIME)));
}

CORVANE_WRAP int __wrap_nanosleep(const timespec* duration, timespec* remaining) {
    if (Scheduler::self() == nullptr) return nanosleep(duration, remaining);
    if (!isValid(*duration)) {
        errno = EINVAL;
        return -1;
    }
    sleepUntil(addSaturated(Scheduler::get().now(), toNs(*duration)), CORVANE_CALLER);
    return 0;
}

CORVANE_WRAP int __wrap_clock_nanosleep(clockid_t clock, int flags, const timespec* time,
                                        timespec* remaining) {
    if (Scheduler::self() == nullptr) return clock_nanosleep(clock, flags, time, remaining);
    if (!isValid(*time)) return EINVAL;
    sleepUntil((flags & TIMER_ABSTIME) != 0 ? toSimulated(clock, *time)
                                            : addSaturated(Scheduler::get().now(), toNs(*time)),
               CORVANE_CALLER);
    return 0;
}

CORVANE_WRAP int __wrap_usleep(useconds_t us) {
    if (Scheduler::self() == nullptr) return usleep(us);
    constexpr int64_t kNsPerUs = 1'000;
    sleepUntil(addSaturated(Scheduler::get().now(), us * kNsPerUs), CORVANE_CALLER);
    return 0;
}
