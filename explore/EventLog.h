// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "corvane/host/Simulation.h"

namespace corvane::explore {

// What the threads of one schedule did, in memory shared with the process that prints it: the one
// that runs the schedule may end at any moment. Addresses mean the same in both.
class EventLog {
  public:
    void add(const host::Simulation::Event& event);
    void nameThreads();  // called by the process that runs the schedule, at its end

    // One row per event, one column per thread, with the places in the sources.
    void print(FILE* out) const;

  private:
    static constexpr size_t kMaxEvents = 1 << 17;
    static constexpr size_t kMaxThreads = 16;

    size_t mCount = 0;
    int64_t mStartNs = 0;  // of the first event; times are printed from there
    host::Simulation::Event mEvents[kMaxEvents];  // the latest, as a ring
    char mNames[kMaxThreads][16] = {};
};

}  // namespace corvane::explore
