// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <map>

namespace corvane::model {

// How often each of many values came. In simulated time few differ, however long a run lasts, and
// percentiles are exact. Where more differ than kMaxDistinct, values are counted with as many
// significant bits as make them few enough, rounded down: memory stays bounded.
class CountedValues {
  public:
    // Times up to 100 ms that all differ then keep 13 bits: they are less by 0.025 % at most.
    static constexpr size_t kMaxDistinct = 65'536;

    void add(int64_t value, size_t times = 1);
    void add(const CountedValues& others);

    size_t count() const { return mCount; }
    // Each value with how often it came, ascending.
    const std::map<int64_t, size_t>& values() const { return mTimes; }
    // The value that `percent` (1 to 100) of all do not exceed, by nearest rank; 0 without any.
    int64_t percentile(size_t percent) const;
    // 0 without any.
    int64_t max() const { return mTimes.empty() ? 0 : mTimes.rbegin()->first; }

  private:
    int64_t rounded(int64_t value) const;
    void keepFewerBits();

    std::map<int64_t, size_t> mTimes;
    size_t mCount = 0;
    int mBits = 64;  // significant ones that are kept
};

}  // namespace corvane::model
