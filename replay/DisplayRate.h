// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace corvane::replay {

// No display refreshes faster.
constexpr int64_t kShortestPeriodNs = 1'000'000;

// From this time on the display's vsync period is this.
struct Rate {
    int64_t atNs;
    int64_t periodNs;
};

// What a recording says on the display's rate. All times count from its first step.
struct RateEvidence {
    std::string counter;                       // that tells the period or the rate; empty: none
    std::vector<Rate> counted;                 // its values, in time's order
    std::vector<std::string> signals;          // the names of the vsync signals
    std::vector<std::vector<int64_t>> vsyncs;  // when each of them came, ascending
    std::vector<int64_t> expected;  // when the compositor expected its frames to show, ascending
    int64_t fallbackPeriodNs = 0;   // where nothing else tells
};

struct RateFindings {
    std::vector<Rate> rates;  // ascending; the first holds from the beginning
    std::string source;       // what told them, as a phrase
    std::string caution;      // what a reader should know of that; empty: nothing
};

// The display's rate, from what tells it best:
//  1. a counter of the period;
//  2. the common base of the vsync intervals. Signals come on demand, so that their intervals are
//     the content's: multiples of the display's period, which is the smallest well-supported one;
//  3. the same of the times at which frames were expected to show;
//  4. the fallback.
// Switches within the recording are found by each of the first three.
RateFindings displayRate(const RateEvidence& evidence);

// The smallest well-supported one of these intervals of which the others are multiples; nothing
// where there is none.
std::optional<int64_t> commonBase(std::vector<int64_t> intervals);

}  // namespace corvane::replay
