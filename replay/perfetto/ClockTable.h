// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "replay/perfetto/trace.pb.h"

namespace corvane::replay {

// A trace's clocks, by their ids in the format.
constexpr uint32_t kMonotonicClock = 3;
constexpr uint32_t kMonotonicRawClock = 5;
constexpr uint32_t kBootClock = 6;

// Brings the times of a trace's clocks to one base, that of the boot clock, by the snapshots in
// which several clocks were read at once. Of the snapshots the last one before a time counts, or
// else the first. Used from one thread.
class ClockTable {
  public:
    // 31 years of uptime; later times are damaged numbers.
    static constexpr int64_t kMaxTimeNs = 1'000'000'000'000'000'000;
    // More readings than the longest recordings hold; further ones are left out.
    static constexpr size_t kMaxReadings = 200'000;

    // `sequence` is the one whose packet holds the snapshot: some clocks are its own.
    void add(const proto::ClockSnapshot& snapshot, uint32_t sequence);
    // What incremental clocks of the sequence counted from is lost.
    void forgetIncrements(uint32_t sequence);

    // The time in the boot clock. An incremental clock moves on by what is asked for. Nothing when
    // the clock is in no snapshot so far, or the time is none.
    std::optional<int64_t> toBoot(uint32_t clock, uint32_t sequence, uint64_t timestamp);

  private:
    struct Reading {
        int64_t clockNs;
        int64_t bootNs;
    };
    struct Clock {
        int64_t unitNs = 1;
        bool incremental = false;
        std::optional<int64_t> lastNs;  // of an incremental clock
        std::vector<Reading> readings;  // ascending
    };
    using Key = std::pair<uint32_t, uint32_t>;  // sequence, 0 for all; clock

    static Key keyOf(uint32_t clock, uint32_t sequence);

    std::map<Key, Clock> mClocks;
    size_t mReadings = 0;
};

}  // namespace corvane::replay
