// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "model/VsyncGrid.h"

#include <algorithm>
#include <iterator>

namespace corvane::model {
namespace {

// The gap between two recorded vsyncs, in whole periods; at least one.
int64_t periodsIn(int64_t gapNs, int64_t periodNs) {
    return std::max<int64_t>(1, (gapNs + periodNs / 2) / periodNs);
}

int64_t floorDiv(int64_t a, int64_t b) {
    return a / b - (a % b < 0 ? 1 : 0);
}

}  // namespace

VsyncGrid::VsyncGrid(const std::vector<int64_t>& recorded, const std::vector<DisplayRate>& rates)
      : mFirstPeriod(rates.front().periodNs), mLastPeriod(rates.back().periodNs) {
    mTimes.reserve(recorded.size());
    mTimes.push_back(recorded.front());
    auto rate = rates.begin();
    for (size_t i = 1; i < recorded.size(); ++i) {
        const int64_t begin = recorded[i - 1];
        const int64_t gap = recorded[i] - begin;
        while (std::next(rate) != rates.end() && std::next(rate)->fromNs <= begin) ++rate;
        const int64_t periods = periodsIn(gap, rate->periodNs);
        for (int64_t k = 1; k <= periods; ++k) mTimes.push_back(begin + gap * k / periods);
    }
}

int64_t VsyncGrid::at(int64_t n) const {
    const auto count = static_cast<int64_t>(mTimes.size());
    if (n < 0) return mTimes.front() + n * mFirstPeriod;
    if (n >= count) return mTimes.back() + (n - count + 1) * mLastPeriod;
    return mTimes[static_cast<size_t>(n)];
}

int64_t VsyncGrid::lastUntil(int64_t timeNs) const {
    if (timeNs < mTimes.front()) return floorDiv(timeNs - mTimes.front(), mFirstPeriod);
    if (timeNs >= mTimes.back()) {
        return static_cast<int64_t>(mTimes.size()) - 1 + (timeNs - mTimes.back()) / mLastPeriod;
    }
    return std::upper_bound(mTimes.begin(), mTimes.end(), timeNs) - mTimes.begin() - 1;
}

int64_t VsyncGrid::firstFrom(int64_t timeNs) const {
    const int64_t last = lastUntil(timeNs);
    return at(last) == timeNs ? last : last + 1;
}

}  // namespace corvane::model
