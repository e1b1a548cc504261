// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <utils/Timers.h>

#include <array>
#include <cstddef>

namespace android {

// The times of a layer's latest janks, kept to notice when they come too often. A value type
// without a lock.
class JankHistory {
  public:
    static constexpr size_t kJanks = 5;  // tolerated within the span
    static constexpr nsecs_t kSpanNs = 15'000'000'000;

    // Adds a jank. True when it is the sixth within less than kSpanNs: the history then starts
    // anew, without this jank.
    bool record(nsecs_t timeNs);

  private:
    std::array<nsecs_t, kJanks> mTimes{};  // oldest first
    size_t mSize = 0;
};

}  // namespace android
