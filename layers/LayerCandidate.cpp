// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "layers/LayerCandidate.h"

namespace android {
namespace {

// Half a second tells an animation from a single redraw, and still promotes a game within the time
// in which its first frames are loading screens.
constexpr nsecs_t kPromotionWindow = 500'000'000;

// Just below the 24 fps of the slowest content worth tracking.
constexpr float kPromotionFps = 23.0f;

}  // namespace

bool LayerCandidate::updateAndCheckPromotion(nsecs_t now) {
    if (firstSeen == 0) firstSeen = now;
    // The buffers before this one: the number of intervals between firstSeen and now.
    const int32_t intervals = frameCount;
    lastSeen = now;
    frameCount = intervals + 1;

    const nsecs_t elapsed = now - firstSeen;
    if (elapsed < kPromotionWindow) return false;
    if (static_cast<float>(intervals) * 1e9f / static_cast<float>(elapsed) >= kPromotionFps) {
        return true;
    }
    frameCount = 1;
    firstSeen = now;
    return false;
}

}  // namespace android
