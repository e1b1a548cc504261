// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>

namespace corvane::host {

// The monotonic clock of the process: the kernel's, unless someone takes hold of it and drives it.
//
// While driven, systemTime(SYSTEM_TIME_MONOTONIC), the library's condition waits, its timer
// descriptors and its nanosleep follow the driven time: a wait ends by time-out only when the
// driver moves the clock to its deadline. All functions may be called from any thread.
class __attribute__((visibility("default"))) DrivenClock {
  public:
    // Takes hold of the clock at startNs (> 0), for the life of this object. One at a time; create
    // it before the library starts its threads.
    explicit DrivenClock(int64_t startNs);
    ~DrivenClock();  // lets every sleeper go; armed timer descriptors go on in real time
    DrivenClock(const DrivenClock&) = delete;
    DrivenClock& operator=(const DrivenClock&) = delete;

    int64_t now() const;

    // Moves the clock forward and lets go every sleeper whose deadline is reached.
    void advance(int64_t deltaNs);
    void advanceTo(int64_t timeNs);

    // Blocks (in real time) until at least `count` threads sleep on the driven clock: condition
    // waits with a time-out and nanosleep. A sleeper that is due or signalled counts no more,
    // though its thread may not have run yet. False when that has not happened within ten seconds.
    bool waitForSleepers(size_t count) const;
    size_t sleepers() const;

    // The earliest deadline anything sleeps for or a timer descriptor is armed to; -1 when none.
    int64_t nextDeadline() const;
};

}  // namespace corvane::host
