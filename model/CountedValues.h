// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <map>

namespace corvane::model {

// How often each of many values came. In simulated time few differ, however long a run lasts, and
// percentiles are exact. Where more differ than kMaxDistinct, neighbours are counted as one, the
// lowest of them, in ranges that double until they are few enough: memory stays bounded.
class CountedValues {
  public:
    // Times within 100 ms then differ from what they were by 12 us at most, less than is shown.
    static constexpr size_t kMaxDistinct = 16'384;

    void add(int64_t value, size_t times = 1);

    size_t count() const { return mCount; }
    // Each value with how often it came, ascending.
    const std::map<int64_t, size_t>& values() const { return mTimes; }
    // The value that `percent` (1 to 100) of all do not exceed, by nearest rank; 0 without any.
    int64_t percentile(size_t percent) const;

  private:
    int64_t lowestOfRange(int64_t value) const { return value & -mRange; }
    void widenRanges();

    std::map<int64_t, size_t> mTimes;
    size_t mCount = 0;
    int64_t mRange = 1;  // of values counted as one; a power of two
};

}  // namespace corvane::model
