// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "model/CountedValues.h"

#include <utility>

namespace corvane::model {

void CountedValues::add(int64_t value, size_t times) {
    mTimes[lowestOfRange(value)] += times;
    mCount += times;
    while (mTimes.size() > kMaxDistinct) widenRanges();
}

void CountedValues::widenRanges() {
    mRange *= 2;
    std::map<int64_t, size_t> wider;
    for (const auto& [value, times] : mTimes) {
        wider.emplace_hint(wider.end(), lowestOfRange(value), 0)->second += times;
    }
    mTimes = std::move(wider);
}

int64_t CountedValues::percentile(size_t percent) const {
    const size_t rank = (mCount * percent + 99) / 100;
    size_t seen = 0;
    for (const auto& [value, times] : mTimes) {
        seen += times;
        if (seen >= rank) return value;
    }
    return 0;
}

}  // namespace corvane::model
