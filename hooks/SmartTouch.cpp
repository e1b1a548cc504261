// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "hooks/SmartTouch.h"

#include "base/SaturatingCast.h"

namespace android {
namespace {

// The last chance to consume comes one touch interval before the frame does; this much earlier it
// is taken, so that delivering the input fits in.
constexpr nsecs_t kConsumeMarginNs = 500'000;

}  // namespace

InputDecision decideInput(const InputTimes& t) {
    const auto since = [&t](nsecs_t time) { return saturatingSub(t.now, time); };
    if (since(t.lastCheckTime) > saturatingMul<nsecs_t>(2, t.frameInterval)) {
        return InputDecision::CONSUME_FIRST_MOVE;
    }
    const nsecs_t latest =
            saturatingSub(t.frameInterval, saturatingAdd(t.touchInterval, kConsumeMarginNs));
    if (!t.queueHeadroomOk) {
        if (t.vsyncTime == 0) return InputDecision::NONE;
        const bool pend =
                since(t.lastConsumeTime) <= t.frameInterval && since(t.vsyncTime) <= latest;
        return pend ? InputDecision::PEND_BEFORE_VSYNC : InputDecision::CONSUME_FOR_VSYNC;
    }
    // Nothing is held longer than a frame, even when no buffer comes.
    const bool heldTooLong = t.pendCount >= 1 && since(t.firstPendTime) > t.frameInterval;
    return since(t.lastQueueTime) <= latest && !heldTooLong ? InputDecision::PEND_BEFORE_QUEUE
                                                            : InputDecision::CONSUME_FOR_QUEUE;
}

}  // namespace android
