// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <utils/Timers.h>

#include <cstdint>

namespace android {

// When pending move input is consumed: as late before the next frame as it still is sure to make
// that frame, so that the frame shows the finger's latest place.

enum class InputDecision {
    NONE,  // no vsync is known: left to the caller
    CONSUME_FIRST_MOVE,
    PEND_BEFORE_VSYNC,
    CONSUME_FOR_VSYNC,
    PEND_BEFORE_QUEUE,
    CONSUME_FOR_QUEUE,
};

// What the decision rests on; times on the monotonic clock.
struct InputTimes {
    nsecs_t now = 0;
    nsecs_t frameInterval = 0;     // 0 or -1 while unknown
    nsecs_t touchInterval = 0;     // between two moves
    nsecs_t lastCheckTime = 0;     // of the decision before
    bool queueHeadroomOk = false;  // the game queues well after it began the frame: queueing sets
                                   // the rhythm, otherwise vsync does
    nsecs_t vsyncTime = 0;         // latest vsync, 0 = none
    nsecs_t lastConsumeTime = 0;   // of the latest consumption for a vsync
    nsecs_t lastQueueTime = 0;     // of the latest queued buffer
    int32_t pendCount = 0;         // input held this often in a row before a queue
    nsecs_t firstPendTime = 0;     // since then
};

InputDecision decideInput(const InputTimes& times);

}  // namespace android
