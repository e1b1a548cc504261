// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>

namespace android {

// Two counts of a layer's record whose values are states.

// Latches since a touch found no buffer pending. They hold back the additional delay at 60 Hz,
// until the queue has run dry or for 30 latches:
//
//                    touch                 latch, buffers pending
//     kNoDropWait ----------> kFirstDropWait = 1 ----------> 2 ... 30
//          ^                          |                           |
//          +--------------------------+---------------------------+
//                latch, none pending; or the one after the 30th
constexpr int32_t kNoDropWait = -1;
constexpr int32_t kFirstDropWait = 1;
constexpr int32_t kLastDropWait = 30;

constexpr bool isDropWait(int32_t count) {
    return count >= kFirstDropWait;
}

constexpr int32_t dropWaitAfterLatch(int32_t count, int32_t pendingCount) {
    if (!isDropWait(count)) return count;
    return pendingCount < 1 || count >= kLastDropWait ? kNoDropWait : count + 1;
}

// Frames since the last heavy window, during which the adaptive headroom climbs:
//
//                      heavy window                  frame
//     kHeadroomSinks ----------------> kFirstClimb = 1 -----> 2 ... 50 -----> over
//          ^                                  ^                  |             |
//          |                                  +--- heavy window--+             |
//          +-------------------------------------------------------------------+
//                                      at once
constexpr int32_t kHeadroomSinks = 0;
constexpr int32_t kFirstClimb = 1;
constexpr int32_t kLastClimb = 50;

constexpr bool isClimbing(int32_t heavyFrames) {
    return heavyFrames >= kFirstClimb && heavyFrames <= kLastClimb;
}

constexpr bool isClimbOver(int32_t heavyFrames) {
    return heavyFrames > kLastClimb;
}

}  // namespace android
