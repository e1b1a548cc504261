// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>

#include "timer/TimerQueue.h"

namespace android {

// Raises the calling thread's priority to that of every frame-path thread of the library: nice -8,
// then SCHED_FIFO priority 1. A process that may not do so keeps its scheduling; that is not an
// error.
void raiseFrameThreadPriority();

// The body of a queue's driving thread: polls until `running` is cleared and wake() was called.
// A failing poll logs "TimerQueue error" under `logTag` and the loop goes on.
void runTimerLoop(TimerQueue& queue, const std::atomic<bool>& running, const char* logTag);

}  // namespace android
