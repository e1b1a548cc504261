// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "model/CountedValues.h"

#include <algorithm>
#include <utility>

namespace corvane::model {

void CountedValues::add(int64_t value, size_t times) {
    mTimes[rounded(value)] += times;
    mCount += times;
    while (mTimes.size() > kMaxDistinct) keepFewerBits();
}

void CountedValues::add(const CountedValues& others) {
    for (const auto& [value, times] : others.mTimes) add(value, times);
}

int64_t CountedValues::rounded(int64_t value) const {
    const auto magnitude = static_cast<uint64_t>(value < 0 ? ~value : value);
    const int significant = 64 - __builtin_clzll(magnitude | 1);
    return value & -(int64_t{1} << std::max(significant - mBits, 0));
}

void CountedValues::keepFewerBits() {
    --mBits;
    std::map<int64_t, size_t> fewer;
    for (const auto& [value, times] : mTimes) {
        fewer.emplace_hint(fewer.end(), rounded(value), 0)->second += times;
    }
    mTimes = std::move(fewer);
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
