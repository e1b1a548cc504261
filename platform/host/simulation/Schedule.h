// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>

#include "corvane/host/Simulation.h"

namespace corvane::host {

// A small generator (splitmix64), the same everywhere.
class Random {
  public:
    explicit constexpr Random(uint64_t seed = 0) : mState(seed) {}

    uint64_t next() {
        uint64_t z = (mState += 0x9E3779B97F4A7C15);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
        return z ^ (z >> 31);
    }
    // Evenly from [0, bound).
    uint64_t below(uint64_t bound) {
        return static_cast<uint64_t>((static_cast<unsigned __int128>(next()) * bound) >> 64);
    }
    int64_t from(const Simulation::Range& range) {
        if (range.maxNs <= range.minNs) return range.minNs;
        return range.minNs +
               static_cast<int64_t>(below(static_cast<uint64_t>(range.maxNs - range.minNs) + 1));
    }

  private:
    uint64_t mState;
};

// The drawn part of a schedule: when the running thread may lose its turn, and with which priority.
// Used by the running thread only.
//
// kPct is probabilistic concurrency testing (Burckhardt, Kothari, Musuvathi, Nagarakatte: "A
// Randomized Scheduler with Probabilistic Guarantees of Finding Bugs", ASPLOS 2010). Each thread
// gets a random priority when it starts, and the one of the highest that can run runs. At d - 1
// steps, drawn evenly from the k of a run, the running thread's priority falls below all others'.
// A fault that shows whenever d certain steps come in a certain order (its depth) is then found by
// one schedule with a probability of at least 1 / (n * k^(d-1)), for n threads and k steps. That
// holds as long as a run has no more than `steps` scheduling points.
class Schedule {
  public:
    constexpr Schedule() = default;

    void start(const Simulation::Options& options);

    Random& random() { return mRandom; }
    Simulation::Policy policy() const { return mPolicy; }

    uint64_t drawPriority();
    void drawChangePoints();

    // kPct: whether this step is one of those drawn; `priority` is then the new one, lower than
    // every drawn priority.
    bool isChangePoint(uint64_t step, uint64_t& priority);

    // kRandom: whether to draw a thread at a point of this kind. Each call is one; of the basic
    // blocks, which are some hundred times as many, only a share drawn once per run.
    bool mayPreempt(bool isBasicBlock);

  private:
    static constexpr size_t kMaxDepth = 32;

    Simulation::Policy mPolicy = Simulation::Policy::kFifo;
    Random mRandom;
    uint64_t mBlockShare = 1;  // one basic block in this many
    uint32_t mDepth = 1;
    uint64_t mSteps = 1;
    size_t mChangePoints = 0;  // that are still to come
    struct ChangePoint {
        uint64_t step = 0;
        uint64_t priority = 0;
    };
    ChangePoint mPoints[kMaxDepth] = {};
    uint64_t mNextChange = 0;  // the earliest step of those to come; 0 = none
};

}  // namespace corvane::host
