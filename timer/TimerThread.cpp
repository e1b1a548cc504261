// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "timer/TimerThread.h"

#include <android/log.h>
#include <sched.h>
#include <sys/resource.h>

namespace android {

namespace {

constexpr int kFrameThreadNice = -8;         // the nice value of the display's own threads
constexpr int kFrameThreadFifoPriority = 1;  // the lowest: ahead of all that is not real-time

}  // namespace

void raiseFrameThreadPriority() {
    setpriority(PRIO_PROCESS, 0, kFrameThreadNice);
    sched_param param{};
    param.sched_priority = kFrameThreadFifoPriority;
    sched_setscheduler(0, SCHED_FIFO, &param);
}

void runTimerLoop(TimerQueue& queue, const std::atomic<bool>& running, const char* logTag) {
    // Relaxed: whoever clears the flag wakes the queue afterwards, and the event descriptor orders
    // that wake before the poll it ends.
    while (running.load(std::memory_order_relaxed)) {
        if (queue.pollOnce(-1) == TimerQueue::POLL_ERROR) {
            __android_log_print(ANDROID_LOG_ERROR, logTag, "TimerQueue error");
        }
    }
}

}  // namespace android
