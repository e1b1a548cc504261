// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "phr/JankHistory.h"

#include <algorithm>

#include "base/SaturatingCast.h"

namespace android {

bool JankHistory::record(nsecs_t timeNs) {
    if (mSize == kJanks) {
        if (saturatingSub(timeNs, mTimes.front()) < kSpanNs) {
            mSize = 0;
            return true;
        }
        std::copy(mTimes.begin() + 1, mTimes.end(), mTimes.begin());
        --mSize;
    }
    mTimes[mSize++] = timeNs;
    return false;
}

}  // namespace android
