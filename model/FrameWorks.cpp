// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "model/FrameWorks.h"

#include <algorithm>
#include <utility>

namespace corvane::model {

FrameWorks::FrameWorks(std::vector<FrameWork> works, size_t first, size_t count, size_t times,
                       int64_t lengthNs)
      : mWorks(std::move(works)),
        mFirst(first),
        mCount(count),
        mTimes(times),
        mLengthNs(lengthNs) {}

FrameWork FrameWorks::operator[](size_t i) const {
    if (mCount == 0 || i < mFirst) return mWorks[i];
    const size_t again = std::min((i - mFirst) / mCount, mTimes);
    FrameWork work = mWorks[i - again * mCount];
    if (work.notBeforeNs > 0) work.notBeforeNs += static_cast<int64_t>(again) * mLengthNs;
    return work;
}

}  // namespace corvane::model
