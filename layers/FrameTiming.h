// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <utils/Timers.h>

#include <cstdint>

// The arithmetic of a layer's frames against the display's vsyncs. The period comes from the
// compositor and may be anything; below 1 ns it is unknown. Results saturate.

namespace android {

// How long a buffer queued at `now` waits to be shown: the time to the next vsync, and one period
// for each of the `queued` buffers before it. A layer that has not been latched yet (anchor below
// 1) has no known vsync phase and is taken to wait a whole period.
nsecs_t predictTimeToPresent(nsecs_t now, nsecs_t period, nsecs_t anchor, int32_t queued);

// Vsyncs that passed between two latches without a new frame.
int32_t countDroppedFrames(nsecs_t now, nsecs_t period, nsecs_t anchor);

// Queue depth after a latch. Queue and latch events of different threads cross each other: right
// after a queued buffer (`sinceQueue` from it) our own count is the better one, otherwise the
// compositor's.
int32_t queueDepthAfterLatch(int32_t depth, int32_t pendingCount, nsecs_t sinceQueue);

// Whether a frame that has been at work since `start` is younger than `periods` vsync periods.
bool isYoungerThan(nsecs_t now, nsecs_t start, float periods, nsecs_t period);

}  // namespace android
