// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "phr/FrameWeightWindow.h"

namespace android {

float frameTimeRatio(nsecs_t frameTimeNs, nsecs_t periodNs) {
    return static_cast<float>(frameTimeNs) / static_cast<float>(periodNs);
}

int32_t frameWeight(float ratio) {
    if (ratio < 0.8f) return 0;
    if (ratio < 1.2f) return 1;
    if (ratio < 1.5f) return 2;
    return 3;
}

void FrameWeightWindow::add(int32_t weight) {
    int32_t& slot = mWeights[mNext];
    if (isFull()) {
        mSum -= slot;
        --mCounts[slot];
    } else {
        ++mSize;
    }
    slot = weight;
    mSum += weight;
    ++mCounts[weight];
    mNext = (mNext + 1) % kFrames;
}

int32_t FrameWeightWindow::maxWeight() const {
    int32_t weight = kWeights - 1;
    while (weight > 0 && mCounts[weight] == 0) --weight;
    return weight;
}

}  // namespace android
