// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/Timeline.h"

#include <pthread.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <time.h>
#include <utils/Timers.h>

#include <algorithm>
#include <cerrno>

namespace corvane::replay {
namespace {

constexpr int64_t kNsPerSecond = 1'000'000'000;

// Above the library's own threads, which run at 1: a replayed clock must not wait for them.
constexpr int kFifoPriority = 2;
constexpr int kNice = -10;  // where real time is not allowed

constexpr int64_t kStopLookNs = 100'000'000;  // not felt between a key and the report

std::atomic<bool> sRealTimeRefused{false};

}  // namespace

void sleepUntil(int64_t deadlineNs) {
    const timespec deadline{deadlineNs / kNsPerSecond, deadlineNs % kNsPerSecond};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr) == EINTR) {
    }
}

void sleepUntil(int64_t deadlineNs, const std::atomic<bool>& stopped) {
    for (int64_t wakeNs = 0; wakeNs < deadlineNs && !stopped;) {
        wakeNs = std::min(deadlineNs, systemTime(SYSTEM_TIME_MONOTONIC) + kStopLookNs);
        sleepUntil(wakeNs);
    }
}

void enterTimelineThread(const std::string& name) {
    pthread_setname_np(pthread_self(), name.c_str());
    prctl(PR_SET_TIMERSLACK, 1UL);  // ns; the default of 50 us adds to every sleep
    sched_param param{};
    param.sched_priority = kFifoPriority;
    if (sched_setscheduler(0, SCHED_FIFO, &param) == 0) return;
    sRealTimeRefused.store(true, std::memory_order_relaxed);
    setpriority(PRIO_PROCESS, 0, kNice);
}

bool isRealTimeRefused() {
    return sRealTimeRefused.load(std::memory_order_relaxed);
}

}  // namespace corvane::replay
