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

VsyncGrid::VsyncGrid(const std::vector<int64_t>& recorded, const std::vector<DisplayRate>& rates,
                     int64_t passes, int64_t passNs)
      : mPasses(passes),
        mPassNs(passNs),
        mFirstPeriod(rates.front().periodNs),
        mLastPeriod(rates.back().periodNs) {
    mTimes.reserve(recorded.size());
    mTimes.push_back(recorded.front());
    auto rate = rates.begin();
    const auto fillUntil = [&](int64_t begin, int64_t end) {
        const int64_t gap = end - begin;
        while (std::next(rate) != rates.end() && std::next(rate)->fromNs <= begin) ++rate;
        const int64_t periods = periodsIn(gap, rate->periodNs);
        for (int64_t k = 1; k <= periods; ++k) mTimes.push_back(begin + gap * k / periods);
    };
    for (size_t i = 1; i < recorded.size(); ++i) fillUntil(recorded[i - 1], recorded[i]);
    mInLastPass = static_cast<int64_t>(mTimes.size());
    if (mPasses > 1) {
        fillUntil(recorded.back(), recorded.front() + mPassNs);
        mTimes.pop_back();  // the first of the next pass
    }
    mPerPass = static_cast<int64_t>(mTimes.size());
}

int64_t VsyncGrid::lastNs() const {
    return mTimes[static_cast<size_t>(mInLastPass - 1)] + (mPasses - 1) * mPassNs;
}

int64_t VsyncGrid::at(int64_t n) const {
    if (n < 0) return mTimes.front() + n * mFirstPeriod;
    if (n >= count()) return lastNs() + (n - count() + 1) * mLastPeriod;
    const int64_t pass = std::min(n / mPerPass, mPasses - 1);
    return mTimes[static_cast<size_t>(n - pass * mPerPass)] + pass * mPassNs;
}

int64_t VsyncGrid::lastUntil(int64_t timeNs) const {
    const int64_t sinceFirstNs = timeNs - mTimes.front();
    if (sinceFirstNs < 0) return floorDiv(sinceFirstNs, mFirstPeriod);
    if (timeNs >= lastNs()) return count() - 1 + (timeNs - lastNs()) / mLastPeriod;
    const int64_t pass = mPasses == 1 ? 0 : std::min(sinceFirstNs / mPassNs, mPasses - 1);
    const auto next = std::upper_bound(mTimes.begin(), mTimes.end(), timeNs - pass * mPassNs);
    return pass * mPerPass + (next - mTimes.begin()) - 1;
}

int64_t VsyncGrid::firstFrom(int64_t timeNs) const {
    const int64_t last = lastUntil(timeNs);
    return at(last) == timeNs ? last : last + 1;
}

}  // namespace corvane::model
