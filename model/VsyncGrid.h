// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "model/Recorded.h"

namespace corvane::model {

// The display's vsyncs, gaps filled: phones signal a vsync only to whoever waits for one, so a
// recording lacks those at which nothing was to be done. Before the first and after the last it
// goes on at the period in force there. An immutable value.
class VsyncGrid {
  public:
    // `recorded` holds at least one time and is ascending; every rate's period is positive.
    VsyncGrid(const std::vector<int64_t>& recorded, const std::vector<DisplayRate>& rates);

    // The time of the n-th vsync; any n, also a negative one.
    int64_t at(int64_t n) const;
    // The number of the last vsync at or before the time, and of the first at or after it.
    int64_t lastUntil(int64_t timeNs) const;
    int64_t firstFrom(int64_t timeNs) const;

    // The period that follows the n-th vsync.
    int64_t periodAfter(int64_t n) const { return at(n + 1) - at(n); }

  private:
    std::vector<int64_t> mTimes;
    int64_t mFirstPeriod;
    int64_t mLastPeriod;
};

}  // namespace corvane::model
