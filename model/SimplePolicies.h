// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <queue>
#include <vector>

#include "model/PacingPolicy.h"
#include "model/Workload.h"

namespace corvane::model {

// Nothing is delayed: what the recorded device did.
class NonePolicy : public PacingPolicy {};

// Frames start at the display's vsyncs, a fixed number of them apart, as with a swap interval.
class IntervalPolicy : public PacingPolicy {
  public:
    // `intervals` has one number of vsyncs, 1 or more, per layer.
    IntervalPolicy(const VsyncGrid& vsyncs, std::vector<int64_t> intervals);

    int64_t frameStart(size_t layer, int64_t nowNs, std::optional<int64_t> lastStartNs) override;

  private:
    const VsyncGrid& mVsyncs;
    const std::vector<int64_t> mIntervals;
};

// At most one buffer per layer waits in the queue: a further one is held until that is latched.
class ShallowPolicy : public PacingPolicy {
  public:
    bool queueBuffer(size_t layer, int waiting, int64_t nowNs) override;
    void latched(size_t layer, int waiting, int64_t nowNs) override;
    std::optional<PolicyEvent> advance(int64_t untilNs) override;

  private:
    std::vector<size_t> mHeld;  // layers whose producer waits
    std::queue<PolicyEvent> mReleases;
};

}  // namespace corvane::model
