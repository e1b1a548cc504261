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
// goes on at the period in force there. A recording may be played several times in a row; only one
// pass is kept. An immutable value.
class VsyncGrid {
  public:
    // `recorded` holds at least one time and is ascending; every rate's period is positive. A pass
    // begins `passNs` after the one before, later than the last of its vsyncs; of one pass it does
    // not count.
    VsyncGrid(const std::vector<int64_t>& recorded, const std::vector<DisplayRate>& rates,
              int64_t passes = 1, int64_t passNs = 0);

    // The time of the n-th vsync; any n, also a negative one.
    int64_t at(int64_t n) const;
    // The number of the last vsync at or before the time, and of the first at or after it.
    int64_t lastUntil(int64_t timeNs) const;
    int64_t firstFrom(int64_t timeNs) const;

    // The period that follows the n-th vsync.
    int64_t periodAfter(int64_t n) const { return at(n + 1) - at(n); }

  private:
    int64_t count() const { return (mPasses - 1) * mPerPass + mInLastPass; }
    int64_t lastNs() const;

    // Of the first pass, and of the gap behind it when another one follows.
    std::vector<int64_t> mTimes;
    int64_t mPasses;
    int64_t mPassNs;
    int64_t mPerPass = 0;
    int64_t mInLastPass = 0;
    int64_t mFirstPeriod;
    int64_t mLastPeriod;
};

}  // namespace corvane::model
