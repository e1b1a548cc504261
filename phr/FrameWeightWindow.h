// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <utils/Timers.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace android {

// How heavy a frame was, judged by its time in vsync periods: 0 short, 1 about one period,
// 2 clearly longer, 3 half a period or more too long. `periodNs` must be positive.
float frameTimeRatio(nsecs_t frameTimeNs, nsecs_t periodNs);
int32_t frameWeight(float ratio);

// The weights of a layer's last frames, with their sum and maximum. A value type without a lock.
class FrameWeightWindow {
  public:
    static constexpr size_t kFrames = 15;
    static constexpr size_t kWeights = 4;

    // Adds the newest frame, in the place of the oldest one when the window is full. `weight` is
    // one that frameWeight() returned.
    void add(int32_t weight);

    bool isFull() const { return mSize == kFrames; }
    int32_t sum() const { return mSum; }
    int32_t maxWeight() const;  // 0 while empty

  private:
    std::array<int32_t, kFrames> mWeights{};  // ring; mNext is the oldest entry once it is full
    std::array<int32_t, kWeights> mCounts{};  // frames of each weight in the window
    size_t mSize = 0;
    size_t mNext = 0;
    int32_t mSum = 0;
};

}  // namespace android
